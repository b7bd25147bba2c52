// Counters of one simulator run and their JSON rendering.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tools/lumx-dspsim/latency_histogram.h"

namespace lumx::dspsim {

struct TapOutStats {
  std::string tap;  // the last tap that streamed here, "2:imic.0"
  uint64_t packetsSent = 0;
  uint64_t bytesSent = 0;        // every byte written, fault bytes included
  uint64_t droppedNoReader = 0;  // the node was not open for reading
  uint64_t droppedBusy = 0;      // the previous packet was still being written
  uint64_t overruns = 0;         // deadlines missed by more than two blocks
  uint64_t faultsInjected = 0;
};

struct InjectStats {
  uint64_t packetsReceived = 0;
  uint64_t bytesReceived = 0;  // every byte read, junk included
  uint64_t gaps = 0;           // packet_num not last + 1
  uint64_t lostPackets = 0;    // numbers skipped by forward gaps
  uint64_t skippedBytes = 0;   // bytes thrown away looking for a magic
  uint64_t resyncs = 0;
  uint64_t badVersion = 0;
  uint64_t oversize = 0;
  uint64_t formatMismatch = 0;  // rate/channels/width differ from the bound tap
  uint64_t unstamped = 0;       // opaque word is not a send time of this run
  uint64_t recordedFrames = 0;
  uint64_t recordErrors = 0;
  LatencyHistogram latencyUs;
  // The same since the previous statistics document: what an observer that
  // samples the run in windows needs, as percentiles cannot be subtracted.
  LatencyHistogram windowLatencyUs;

  uint64_t errors() const { return resyncs + badVersion + oversize + formatMismatch; }
};

struct CommandStats {
  uint64_t count = 0;
  std::map<int, uint64_t> statuses;  // status sent -> replies
  uint64_t dropped = 0;              // no reply (fault)
};

struct FaultCounts {
  uint64_t restarts = 0;
  uint64_t replyDelayed = 0;
  uint64_t replyDropped = 0;
  uint64_t strayReply = 0;
  uint64_t errorStatus = 0;
  uint64_t split = 0;
  uint64_t stale = 0;
  uint64_t misaligned = 0;
  uint64_t badVersion = 0;
  uint64_t oversize = 0;
  uint64_t packetNumJump = 0;
  uint64_t pauses = 0;
  uint64_t pausedPackets = 0;
  uint64_t endlessListPages = 0;   // TAP_LIST pages answered full by the fault
  uint64_t unmatchedReplies = 0;   // replies to no request, written whole
  uint64_t nodeFlaps = 0;
  uint64_t stalls = 0;             // inject reader stalls begun
  uint64_t writerGone = 0;         // tap-out writer absences begun
  uint64_t writerGonePackets = 0;  // packets dropped while the writer was away
  uint64_t bursts = 0;             // held-back runs written in one write()
  uint64_t burstPackets = 0;       // packets that went out in those runs
};

struct SimStats {
  int64_t startNs = 0;
  int64_t nowNs = 0;
  int64_t cpuNs = 0;  // CPU time of the simulator's loop thread
  int64_t windowStartNs = 0;  // when the previous document was written (or the start)
  std::map<int, TapOutStats> tapOuts;
  std::map<int, InjectStats> injects;
  std::map<int, CommandStats> commands;  // by opcode, unknown ones included
  uint64_t shortRequests = 0;            // fewer than 8 bytes: no opcode
  uint64_t replyWriteFailures = 0;       // replies not written whole, or not queued
  FaultCounts faults;
};

// One JSON document (no trailing newline). `final`: written at the end.
std::string StatsToJson(const SimStats& stats, bool final);

// Starts the next window of the window figures at `nowNs`.
void StartStatsWindow(SimStats* stats, int64_t nowNs);

}  // namespace lumx::dspsim
