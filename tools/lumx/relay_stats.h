// Bookkeeping of a relay session: packet counts, missing blocks judged by
// arrival time, and inter-arrival timing. Pure arithmetic on the arrival
// times handed in, so it can be checked without a daemon.
#pragma once

#include <cstdint>
#include <string>

namespace lumx::cli {

// Relay audio is always 48 kHz (the relay processor's only rate).
inline constexpr uint32_t kRelaySampleRate = 48000;

struct RelaySummary {
  uint64_t packets = 0;       // well-formed packets received
  uint64_t samples = 0;       // samples in those packets
  uint64_t badPackets = 0;    // packets with other codes or odd data sizes
  uint64_t dropped = 0;       // packets this tool had no room to queue
  uint64_t sent = 0;          // SendAudio calls answered OK
  uint64_t sendErrors = 0;    // SendAudio calls answered with another status
  uint64_t gaps = 0;          // intervals in which at least one block is missing
  uint64_t missingBlocks = 0; // blocks judged missing over all gaps
  double meanIntervalMs = 0;  // inter-arrival mean (0 with fewer than 2 packets)
  double maxIntervalMs = 0;
  double minIntervalMs = 0;
  double durationS = 0;       // first to last arrival
};

class RelayStats {
 public:
  // A packet of `samples` mono samples arrived at `arrivalNs` (any monotonic
  // clock). The interval since the previous packet, measured in block
  // durations of the previous packet and rounded, tells how many blocks
  // should have arrived in between; every one beyond the first is missing.
  void OnPacket(int64_t arrivalNs, uint64_t samples);
  void OnBadPacket() { ++summary_.badPackets; }
  void OnDropped(uint64_t n) { summary_.dropped += n; }
  void OnSent(bool ok) { ok ? ++summary_.sent : ++summary_.sendErrors; }

  RelaySummary Summary() const;

 private:
  RelaySummary summary_;
  bool havePrevious_ = false;
  int64_t firstNs_ = 0;
  int64_t previousNs_ = 0;
  uint64_t previousSamples_ = 0;
  double intervalSumNs_ = 0;
  uint64_t intervals_ = 0;
  int64_t maxIntervalNs_ = 0;
  int64_t minIntervalNs_ = 0;
};

// "key: value" lines, one per figure.
std::string FormatRelayText(const RelaySummary& s);
// One JSON object on one line, newline-terminated. `exitCode` and `error`
// describe how the session ended.
std::string FormatRelayJson(const std::string& processor, const RelaySummary& s,
                            int exitCode, const std::string& error);

}  // namespace lumx::cli
