// `lumx graph`: the connection graph read from the daemon's listings
// (ListProcessors, ListTapOutBuffers, ListInjectBuffers and TapList of the
// DSP cores 2, 3 and 4), rendered as Graphviz DOT. Nothing here talks to
// binder. The DOT text is sorted, so the same state always gives the same
// bytes.
//
// What the graph shows: every processor; every buffer that is enabled, wired
// to a processor or bound to a tap; every tap bound to a buffer. Tap-out
// buffers feed processors, processors feed inject buffers, taps feed their
// tap-out buffer and are fed by their inject buffer. Whatever is disabled
// (a tap on the DSP, a buffer, a processor) is dashed and says so.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace lumx::cli {

// The text lines of the answers the graph is read from.
struct GraphListings {
  std::vector<std::string> processors;  // ListProcessors
  std::vector<std::string> tapOut;      // ListTapOutBuffers
  std::vector<std::string> inject;      // ListInjectBuffers
  std::vector<std::pair<int, std::vector<std::string>>> taps;  // core, TapList
};

// The DOT text of the graph. `problems` gets one line per listing that could
// not be read (a core whose tap list failed, a row of an unknown form); the
// graph is drawn from the rest and names them in its title.
std::string GraphDot(const GraphListings& in, std::vector<std::string>* problems);

}  // namespace lumx::cli
