// `lumx top`: what one JSON dump of lumxd says about its streams, and one
// table row per tap-out buffer computed from two dumps (rates are the
// difference of the counters over the difference of the daemon's uptime).
// Nothing here talks to binder.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumx::cli {

struct StreamSample {
  int64_t id = 0;
  std::string name;
  bool enabled = false;
  bool running = false;
  std::string tap;  // empty when the dump says null
  std::vector<std::string> outputs;
  bool hasFormat = false;
  uint64_t rate = 0, channels = 0, bytesPerSample = 0, blockLength = 0;
  uint64_t packets = 0, lost = 0;
  uint64_t errors = 0;  // read errors and packets cut for any reason
  std::optional<uint64_t> p99Us;
};

struct ProcessorSample {
  std::string id, input, output;
  uint64_t failed = 0;
  uint64_t clientDropped = 0;
};

struct InjectSample {
  std::string name, input;
  uint64_t writeFailures = 0;
};

struct DumpSample {
  double uptimeS = 0.0;
  int64_t version = 0;
  bool wakeLockHeld = false;
  bool controlOpen = false;
  uint64_t commands = 0, timeouts = 0, reopens = 0;
  std::vector<StreamSample> streams;  // ascending id
  std::vector<ProcessorSample> processors;
  std::vector<InjectSample> injects;
};

// Reads the daemon's `dump --json` document. False with a reason when it is
// not JSON or not a lumxd dump (no "uptime_s" or no "tapout_buffers" array).
bool ParseDump(std::string_view text, DumpSample* out, std::string* error);

struct TopRow {
  char state = 'S';  // R running, I running but idle, E enabled without I/O thread, S stopped
  int64_t id = 0;
  std::string buffer, tap, format;
  std::optional<uint64_t> quantum, rate;
  std::optional<double> packetsPerS;
  uint64_t lost = 0, errors = 0, relayDrops = 0;
  std::optional<uint64_t> p99Us;
  std::string processors;
};

// One row per stream of `now`; rates need `before` (an earlier dump of the
// same daemon) and stay unknown for a stream it lacks or whose counters went
// back (cleared, or a restarted daemon).
std::vector<TopRow> ComputeTopRows(const DumpSample* before, const DumpSample& now);
// The header line and the table.
std::string RenderTopText(const DumpSample& now, const std::vector<TopRow>& rows);
// One JSON object on one line.
std::string RenderTopJson(const DumpSample& now, const std::vector<TopRow>& rows);

}  // namespace lumx::cli
