#include "relay_stats.h"

#include <cmath>
#include <cstdio>

#include "lumx_cli.h"

namespace lumx::cli {

void RelayStats::OnPacket(int64_t arrivalNs, uint64_t samples) {
  ++summary_.packets;
  summary_.samples += samples;
  if (!havePrevious_) {
    havePrevious_ = true;
    firstNs_ = arrivalNs;
  } else {
    int64_t interval = arrivalNs - previousNs_;
    if (interval < 0) interval = 0;  // clock handed in out of order
    intervalSumNs_ += static_cast<double>(interval);
    if (intervals_ == 0 || interval > maxIntervalNs_) maxIntervalNs_ = interval;
    if (intervals_ == 0 || interval < minIntervalNs_) minIntervalNs_ = interval;
    ++intervals_;
    if (previousSamples_ > 0) {
      double blockNs = 1e9 * static_cast<double>(previousSamples_) /
                       static_cast<double>(kRelaySampleRate);
      double blocks = std::floor(static_cast<double>(interval) / blockNs + 0.5);
      if (blocks >= 2.0) {
        ++summary_.gaps;
        summary_.missingBlocks += static_cast<uint64_t>(blocks) - 1;
      }
    }
  }
  previousNs_ = arrivalNs;
  previousSamples_ = samples;
}

RelaySummary RelayStats::Summary() const {
  RelaySummary s = summary_;
  if (intervals_ > 0) {
    s.meanIntervalMs = intervalSumNs_ / static_cast<double>(intervals_) / 1e6;
    s.maxIntervalMs = static_cast<double>(maxIntervalNs_) / 1e6;
    s.minIntervalMs = static_cast<double>(minIntervalNs_) / 1e6;
  }
  if (havePrevious_) {
    s.durationS = static_cast<double>(previousNs_ - firstNs_) / 1e9;
  }
  return s;
}

namespace {

std::string Fixed(double v, int decimals) {
  char buf[64];
  snprintf(buf, sizeof(buf), "%.*f", decimals, v);
  return buf;
}

}  // namespace

std::string FormatRelayText(const RelaySummary& s) {
  std::string out;
  out += "packets received: " + std::to_string(s.packets) + "\n";
  out += "samples received: " + std::to_string(s.samples) + "\n";
  out += "bad packets: " + std::to_string(s.badPackets) + "\n";
  out += "dropped packets: " + std::to_string(s.dropped) + "\n";
  out += "packets sent: " + std::to_string(s.sent) + "\n";
  out += "send errors: " + std::to_string(s.sendErrors) + "\n";
  out += "gaps: " + std::to_string(s.gaps) + "\n";
  out += "missing blocks: " + std::to_string(s.missingBlocks) + "\n";
  out += "inter-arrival mean ms: " + Fixed(s.meanIntervalMs, 3) + "\n";
  out += "inter-arrival max ms: " + Fixed(s.maxIntervalMs, 3) + "\n";
  out += "inter-arrival min ms: " + Fixed(s.minIntervalMs, 3) + "\n";
  out += "duration s: " + Fixed(s.durationS, 3) + "\n";
  return out;
}

std::string FormatRelayJson(const std::string& processor, const RelaySummary& s,
                            int exitCode, const std::string& error) {
  std::string out = "{\"op\":\"relay\",\"processor\":" + JsonString(processor);
  out += ",\"exitCode\":" + std::to_string(exitCode);
  if (!error.empty()) out += ",\"error\":" + JsonString(error);
  out += ",\"packets\":" + std::to_string(s.packets);
  out += ",\"samples\":" + std::to_string(s.samples);
  out += ",\"badPackets\":" + std::to_string(s.badPackets);
  out += ",\"dropped\":" + std::to_string(s.dropped);
  out += ",\"sent\":" + std::to_string(s.sent);
  out += ",\"sendErrors\":" + std::to_string(s.sendErrors);
  out += ",\"gaps\":" + std::to_string(s.gaps);
  out += ",\"missingBlocks\":" + std::to_string(s.missingBlocks);
  out += ",\"interArrivalMeanMs\":" + JsonNumber(s.meanIntervalMs);
  out += ",\"interArrivalMaxMs\":" + JsonNumber(s.maxIntervalMs);
  out += ",\"interArrivalMinMs\":" + JsonNumber(s.minIntervalMs);
  out += ",\"durationS\":" + JsonNumber(s.durationS);
  out += "}\n";
  return out;
}

}  // namespace lumx::cli
