// Command line of lumx-dspsim.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/lumx-dspsim/tap_table.h"

namespace lumx::dspsim {

struct FaultOptions {
  // DSP restart: every N seconds (0 = only on SIGUSR2), nodes gone for downMs.
  double restartEverySec = 0;
  int restartDownMs = 1000;
  bool restartKeepState = false;
  // Control channel.
  int replyDelayMs = 0;
  double replyDelayRate = 1.0;
  double dropReplyRate = 0;
  double strayReplyRate = 0;
  std::map<uint16_t, int16_t> errorStatus;  // opcode -> status
  // Every TAP_LIST page answered full: the list never ends.
  bool endlessList = false;
  // Replies that answer no request, this many per second, sent whether or
  // not a command is waiting (0 = none).
  double unmatchedPerSec = 0;
  // Device watch: every N seconds one data node is removed and created again
  // at once, so both events reach a watcher together (0 = never).
  double flapEverySec = 0;
  // Tap-out streams.
  double splitRate = 0;
  double staleRate = 0;
  double misalignRate = 0;
  double badVersionRate = 0;
  double oversizeRate = 0;
  double jumpRate = 0;
  uint32_t jumpBy = 7;
  double pauseEverySec = 0;
  int pauseMs = 0;
  int pieceGapUs = 1000;       // pause between the pieces of a split packet
  std::set<int> tapOutFilter;  // data faults only on these tap-outs (empty: all)
  // Stream-side faults of a misbehaving peer.
  std::set<int> stallInjects;  // inject nodes whose reader stops reading
  double stallEverySec = 0;    // 0: the stall lasts for ever; else every SEC s ...
  int stallMs = 0;             // ... for MS ms
  double writerGoneEverySec = 0;  // every SEC s the tap-out writer goes away ...
  int writerGoneMs = 0;           // ... for MS ms (end of file for the reader)
  double burstEverySec = 0;       // every SEC s, packets of MS ms are held back ...
  int burstMs = 0;                // ... and written together in one write

  bool AnyDataFault() const {
    return splitRate > 0 || staleRate > 0 || misalignRate > 0 || badVersionRate > 0 ||
           oversizeRate > 0 || jumpRate > 0 || pauseEverySec > 0;
  }
};

struct Options {
  std::string devRoot;
  std::vector<int> tapOutIds{20, 21, 40, 41};
  std::vector<int> injectIds{20, 21, 40, 41};
  std::vector<TapEntry> taps = DefaultTapTable();
  std::map<std::string, std::string> sources;  // "[core:]code.index" -> wav path
  std::map<int, std::string> records;          // inject id -> wav path
  std::string statsPath = "-";                 // "-" = standard output, "" = none
  double durationSec = 0;                      // 0 = until a signal
  std::string readyFile;
  // Pause between creating (or, on a restart, removing) two nodes; 0 makes
  // each restart one burst of node events.
  int nodeGapMs = 0;
  uint64_t seed = 1;
  bool verbose = false;
  // The executable turns SIGINT/SIGTERM/SIGUSR1/SIGUSR2 into requests; an
  // in-process user drives the simulator through its methods instead.
  bool handleSignals = false;
  FaultOptions faults;
};

enum class ParseOutcome { kRun, kExit, kError };

// Reads argv. kExit: --help or --print-taps was answered in `message`
// (print it and exit 0). kError: `message` says what is wrong (exit 2).
ParseOutcome ParseOptions(int argc, char** argv, Options* options, std::string* message);

std::string HelpText();

}  // namespace lumx::dspsim
