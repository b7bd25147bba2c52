#include "tools/lumx-dspsim/stats.h"

#include <cinttypes>
#include <cstdio>

#include "tools/lumx-dspsim/wire.h"

namespace lumx::dspsim {

namespace {

std::string Quote(const std::string& s) {
  std::string out = "\"";
  for (char ch : s) {
    unsigned char c = static_cast<unsigned char>(ch);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += ch;
    } else if (c < 0x20) {
      char esc[8];
      std::snprintf(esc, sizeof esc, "\\u%04x", c);
      out += esc;
    } else {
      out += ch;
    }
  }
  return out + "\"";
}

class Obj {
 public:
  explicit Obj(std::string* out) : out_(out) { *out_ += "{"; }
  ~Obj() { *out_ += "}"; }
  Obj(const Obj&) = delete;
  Obj& operator=(const Obj&) = delete;
  void Key(const char* k) {
    if (!first_) *out_ += ",";
    first_ = false;
    *out_ += Quote(k) + ":";
  }
  void U(const char* k, uint64_t v) {
    Key(k);
    char b[32];
    std::snprintf(b, sizeof b, "%" PRIu64, v);
    *out_ += b;
  }
  void I(const char* k, int64_t v) {
    Key(k);
    char b[32];
    std::snprintf(b, sizeof b, "%" PRId64, v);
    *out_ += b;
  }
  void S(const char* k, const std::string& v) {
    Key(k);
    *out_ += Quote(v);
  }
  void B(const char* k, bool v) {
    Key(k);
    *out_ += v ? "true" : "false";
  }
  void Raw(const char* k, const std::string& v) {
    Key(k);
    *out_ += v;
  }

 private:
  std::string* out_;
  bool first_ = true;
};

std::string TapOutJson(int id, const TapOutStats& s) {
  std::string out;
  {
    Obj o(&out);
    o.S("node", "zch-lumx_tapout" + std::to_string(id));
    o.S("direction", "tapout");
    o.I("id", id);
    o.S("tap", s.tap);
    o.U("packets_sent", s.packetsSent);
    o.U("bytes_sent", s.bytesSent);
    o.U("dropped_no_reader", s.droppedNoReader);
    o.U("dropped_busy", s.droppedBusy);
    o.U("overruns", s.overruns);
    o.U("faults_injected", s.faultsInjected);
  }
  return out;
}

std::string LatencyJson(const LatencyHistogram& h) {
  std::string out;
  {
    Obj l(&out);
    l.U("count", h.count());
    l.U("p50", h.Quantile(0.50));
    l.U("p99", h.Quantile(0.99));
    l.U("max", h.max());
  }
  return out;
}

std::string InjectJson(int id, const InjectStats& s) {
  std::string out;
  {
    Obj o(&out);
    o.S("node", "zch-lumx_inject" + std::to_string(id));
    o.S("direction", "inject");
    o.I("id", id);
    o.U("packets_received", s.packetsReceived);
    o.U("bytes_received", s.bytesReceived);
    o.U("gaps", s.gaps);
    o.U("lost_packets", s.lostPackets);
    o.U("errors", s.errors());
    o.U("resyncs", s.resyncs);
    o.U("skipped_bytes", s.skippedBytes);
    o.U("bad_version", s.badVersion);
    o.U("oversize", s.oversize);
    o.U("format_mismatch", s.formatMismatch);
    o.U("unstamped", s.unstamped);
    o.U("recorded_frames", s.recordedFrames);
    o.U("record_errors", s.recordErrors);
    o.Raw("latency_us", LatencyJson(s.latencyUs));
    o.Raw("window_latency_us", LatencyJson(s.windowLatencyUs));
  }
  return out;
}

}  // namespace

std::string StatsToJson(const SimStats& stats, bool final) {
  std::string streams = "[";
  bool first = true;
  for (const auto& [id, s] : stats.tapOuts) {
    if (!first) streams += ",";
    first = false;
    streams += TapOutJson(id, s);
  }
  for (const auto& [id, s] : stats.injects) {
    if (!first) streams += ",";
    first = false;
    streams += InjectJson(id, s);
  }
  streams += "]";

  std::string commands = "[";
  first = true;
  for (const auto& [opcode, c] : stats.commands) {
    if (!first) commands += ",";
    first = false;
    std::string statuses;
    {
      Obj st(&statuses);
      for (const auto& [status, n] : c.statuses) {
        std::string key = std::to_string(status);
        st.U(key.c_str(), n);
      }
    }
    Obj o(&commands);
    o.I("opcode", opcode);
    const char* name = OpcodeName(static_cast<uint16_t>(opcode));
    o.S("name", name != nullptr ? name : "UNKNOWN");
    o.U("count", c.count);
    o.Raw("statuses", statuses);
    o.U("dropped", c.dropped);
  }
  commands += "]";

  std::string faults;
  {
    const FaultCounts& f = stats.faults;
    Obj o(&faults);
    o.U("restart", f.restarts);
    o.U("reply_delayed", f.replyDelayed);
    o.U("reply_dropped", f.replyDropped);
    o.U("stray_reply", f.strayReply);
    o.U("error_status", f.errorStatus);
    o.U("split", f.split);
    o.U("stale", f.stale);
    o.U("misaligned", f.misaligned);
    o.U("bad_version", f.badVersion);
    o.U("oversize", f.oversize);
    o.U("packet_num_jump", f.packetNumJump);
    o.U("pause", f.pauses);
    o.U("paused_packets", f.pausedPackets);
    o.U("endless_list_pages", f.endlessListPages);
    o.U("unmatched_reply", f.unmatchedReplies);
    o.U("node_flap", f.nodeFlaps);
    o.U("stall", f.stalls);
    o.U("writer_gone", f.writerGone);
    o.U("writer_gone_packets", f.writerGonePackets);
    o.U("burst", f.bursts);
    o.U("burst_packets", f.burstPackets);
  }

  std::string out;
  {
    Obj o(&out);
    o.S("tool", "lumx-dspsim");
    o.B("final", final);
    char elapsed[32];
    std::snprintf(elapsed, sizeof elapsed, "%.3f",
                  static_cast<double>(stats.nowNs - stats.startNs) / 1e9);
    o.Raw("elapsed_s", elapsed);
    std::snprintf(elapsed, sizeof elapsed, "%.3f",
                  static_cast<double>(stats.nowNs - stats.windowStartNs) / 1e9);
    o.Raw("window_s", elapsed);
    double wall = static_cast<double>(stats.nowNs - stats.startNs);
    char cpu[32];
    std::snprintf(cpu, sizeof cpu, "%.3f", static_cast<double>(stats.cpuNs) / 1e9);
    o.Raw("cpu_s", cpu);
    std::snprintf(cpu, sizeof cpu, "%.2f",
                  wall > 0 ? 100.0 * static_cast<double>(stats.cpuNs) / wall : 0.0);
    o.Raw("cpu_percent", cpu);
    o.Raw("streams", streams);
    o.Raw("commands", commands);
    o.U("short_requests", stats.shortRequests);
    o.U("reply_write_failures", stats.replyWriteFailures);
    o.Raw("faults", faults);
  }
  return out;
}

void StartStatsWindow(SimStats* stats, int64_t nowNs) {
  stats->windowStartNs = nowNs;
  for (auto& [id, s] : stats->injects) s.windowLatencyUs = LatencyHistogram();
}

}  // namespace lumx::dspsim
