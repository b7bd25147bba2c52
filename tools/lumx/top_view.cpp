#include "top_view.h"

#include <algorithm>
#include <cstdio>

#include "json_value.h"
#include "lumx_cli.h"

namespace lumx::cli {

namespace {

// Sum of every counter in an object such as "cut" or "write_failures".
uint64_t SumMembers(const JsonValue& v) {
  uint64_t sum = 0;
  for (const auto& [key, member] : v.members()) sum += member.u64();
  return sum;
}

std::string Text(const char* fmt, double v) {
  char buf[64];
  snprintf(buf, sizeof(buf), fmt, v);
  return buf;
}

std::string OrDash(const std::optional<uint64_t>& v) {
  return v ? std::to_string(*v) : std::string("-");
}

std::string JsonOpt(const std::optional<uint64_t>& v) {
  return v ? std::to_string(*v) : std::string("null");
}

}  // namespace

bool ParseDump(std::string_view text, DumpSample* out, std::string* error) {
  *out = DumpSample{};
  JsonValue doc;
  std::string why;
  if (!JsonValue::Parse(text, &doc, &why)) {
    *error = "the dump is not JSON: " + why;
    return false;
  }
  if (!doc["uptime_s"].isNumber() || !doc["tapout_buffers"].isArray()) {
    *error = "the dump is not a lumxd dump (no uptime_s or tapout_buffers)";
    return false;
  }
  out->uptimeS = doc["uptime_s"].number();
  out->version = static_cast<int64_t>(doc["interface"]["version"].number());
  out->wakeLockHeld = doc["wake_lock"]["held"].boolean();
  const JsonValue& control = doc["control"];
  out->controlOpen = control["open"].boolean();
  out->commands = control["commands"].u64();
  out->timeouts = control["timeouts"].u64();
  out->reopens = control["reopens"].u64();
  for (const JsonValue& b : doc["tapout_buffers"].items()) {
    StreamSample s;
    s.id = static_cast<int64_t>(b["id"].number());
    s.name = b["name"].str();
    s.enabled = b["enabled"].boolean();
    s.running = b["running"].boolean();
    s.tap = b["tap"].str();
    for (const JsonValue& o : b["outputs"].items()) s.outputs.push_back(o.str());
    const JsonValue& f = b["format"];
    if (f.isObject()) {
      s.hasFormat = true;
      s.rate = f["rate"].u64();
      s.channels = f["channels"].u64();
      s.bytesPerSample = f["bytes_per_sample"].u64();
      s.blockLength = f["block_length"].u64();
    }
    s.packets = b["packets"].u64();
    s.lost = b["lost"].u64();
    s.errors = b["read_errors"].u64() + SumMembers(b["cut"]);
    if (b["process_us"]["p99"].isNumber()) s.p99Us = b["process_us"]["p99"].u64();
    out->streams.push_back(std::move(s));
  }
  std::sort(out->streams.begin(), out->streams.end(),
            [](const StreamSample& a, const StreamSample& b) { return a.id < b.id; });
  for (const JsonValue& p : doc["processors"].items()) {
    ProcessorSample s;
    s.id = p["id"].str();
    s.input = p["input"].str();
    s.output = p["output"].str();
    s.failed = p["failed"].u64();
    s.clientDropped = p["client"]["dropped"].u64();
    out->processors.push_back(std::move(s));
  }
  for (const JsonValue& i : doc["inject_buffers"].items()) {
    InjectSample s;
    s.name = i["name"].str();
    s.input = i["input"].str();
    s.writeFailures = SumMembers(i["write_failures"]);
    out->injects.push_back(std::move(s));
  }
  return true;
}

std::vector<TopRow> ComputeTopRows(const DumpSample* before, const DumpSample& now) {
  std::vector<TopRow> rows;
  const double dt = before ? now.uptimeS - before->uptimeS : 0.0;
  for (const StreamSample& s : now.streams) {
    TopRow r;
    r.id = s.id;
    r.buffer = s.name;
    r.tap = s.tap;
    if (s.hasFormat) {
      r.quantum = s.blockLength;
      r.rate = s.rate;
      r.format = std::to_string(s.bytesPerSample * 8) + "bit " + std::to_string(s.channels) + "ch";
    }
    if (before && dt > 0.0) {
      for (const StreamSample& b : before->streams) {
        if (b.id == s.id && b.name == s.name && s.packets >= b.packets) {
          r.packetsPerS = static_cast<double>(s.packets - b.packets) / dt;
        }
      }
    }
    r.lost = s.lost;
    r.errors = s.errors;
    r.p99Us = s.p99Us;
    // What the stream's processors failed, dropped for their relay client,
    // and could not write on: the same audio, lost further down its path.
    for (const ProcessorSample& p : now.processors) {
      const bool onStream = p.input == s.name ||
                            std::find(s.outputs.begin(), s.outputs.end(), p.id) != s.outputs.end();
      if (!onStream) continue;
      r.errors += p.failed;
      r.relayDrops += p.clientDropped;
      for (const InjectSample& i : now.injects) {
        if (i.input == p.id) r.errors += i.writeFailures;
      }
    }
    for (size_t k = 0; k < s.outputs.size(); ++k) r.processors += (k ? "," : "") + s.outputs[k];
    if (!s.enabled) {
      r.state = 'S';
    } else if (!s.running) {
      r.state = 'E';
    } else {
      r.state = r.packetsPerS && *r.packetsPerS == 0.0 ? 'I' : 'R';
    }
    rows.push_back(std::move(r));
  }
  return rows;
}

std::string RenderTopText(const DumpSample& now, const std::vector<TopRow>& rows) {
  std::string out = "lumxd up " + Text("%.1f", now.uptimeS) + " s; wake lock " +
                    (now.wakeLockHeld ? "held" : "released") + "; control channel " +
                    (now.controlOpen ? "open" : "closed") + ", " + std::to_string(now.commands) +
                    " commands, " + std::to_string(now.timeouts) + " timeouts, " +
                    std::to_string(now.reopens) + " reopens\n";
  char line[512];
  const char* fmt = "%s %4s %-10s %-12s %5s %6s %-10s %7s %6s %6s %6s %6s %s\n";
  snprintf(line, sizeof(line), fmt, "S", "ID", "BUFFER", "TAP", "QUANT", "RATE", "FORMAT", "PKT/S",
           "LOST", "ERR", "P99us", "DROPS", "PROCESSORS");
  out += line;
  for (const TopRow& r : rows) {
    const std::string state(1, r.state);
    const std::string pps = r.packetsPerS ? Text("%.1f", *r.packetsPerS) : "-";
    snprintf(line, sizeof(line), fmt, state.c_str(), std::to_string(r.id).c_str(), r.buffer.c_str(),
             r.tap.empty() ? "-" : r.tap.c_str(), OrDash(r.quantum).c_str(), OrDash(r.rate).c_str(),
             r.format.empty() ? "-" : r.format.c_str(), pps.c_str(), std::to_string(r.lost).c_str(),
             std::to_string(r.errors).c_str(), OrDash(r.p99Us).c_str(), std::to_string(r.relayDrops).c_str(),
             r.processors.empty() ? "-" : r.processors.c_str());
    out += line;
  }
  if (rows.empty()) out += "(no tap-out buffers)\n";
  return out;
}

std::string RenderTopJson(const DumpSample& now, const std::vector<TopRow>& rows) {
  std::string out = "{\"op\":\"top\",\"uptime_s\":" + JsonNumber(now.uptimeS) + ",\"streams\":[";
  for (size_t k = 0; k < rows.size(); ++k) {
    const TopRow& r = rows[k];
    out += k ? ",{" : "{";
    out += "\"state\":\"" + std::string(1, r.state) + "\",\"id\":" + std::to_string(r.id);
    out += ",\"buffer\":" + JsonString(r.buffer);
    out += ",\"tap\":" + (r.tap.empty() ? std::string("null") : JsonString(r.tap));
    out += ",\"quantum\":" + JsonOpt(r.quantum) + ",\"rate\":" + JsonOpt(r.rate);
    out += ",\"format\":" + (r.format.empty() ? std::string("null") : JsonString(r.format));
    out += ",\"packets_per_s\":" + (r.packetsPerS ? JsonNumber(*r.packetsPerS) : std::string("null"));
    out += ",\"lost\":" + std::to_string(r.lost) + ",\"errors\":" + std::to_string(r.errors);
    out += ",\"p99_us\":" + JsonOpt(r.p99Us) + ",\"relay_drops\":" + std::to_string(r.relayDrops);
    out += ",\"processors\":" + JsonString(r.processors) + "}";
  }
  out += "]}\n";
  return out;
}

}  // namespace lumx::cli
