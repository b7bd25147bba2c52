#include "tools/lumx-dspsim/tap_table.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <tuple>

namespace lumx::dspsim {

namespace {

constexpr uint32_t kMaxSampleRate = 384000;
constexpr uint32_t kMaxChannels = 8;
constexpr size_t kMaxTapsPerCore = 256;

bool ParseUnsigned(const std::string& s, unsigned long max, unsigned long* out) {
  if (s.empty() || s[0] == '-' || s[0] == '+') return false;
  errno = 0;
  char* end = nullptr;
  unsigned long v = std::strtoul(s.c_str(), &end, 10);
  if (errno != 0 || end == s.c_str() || *end != '\0' || v > max) return false;
  *out = v;
  return true;
}

bool ParseBufferId(const std::string& s, uint8_t* out) {
  if (s == "none") {
    *out = kNoBuffer;
    return true;
  }
  unsigned long v;
  if (!ParseUnsigned(s, 254, &v)) return false;
  *out = static_cast<uint8_t>(v);
  return true;
}

std::string Line(size_t n, const std::string& what) {
  return "line " + std::to_string(n) + ": " + what;
}

}  // namespace

std::string TapName(const TapEntry& tap) {
  return FourCcText(tap.code) + "." + std::to_string(tap.index);
}

std::string TapLongName(const TapEntry& tap) {
  return std::to_string(tap.core) + ":" + TapName(tap);
}

int16_t CheckBlockLength(uint32_t blockLength, uint32_t channels, uint32_t bitsPerSample) {
  if (blockLength == 0 || blockLength % kFrameSamples != 0) return kStatusBadValue;
  uint64_t bytes = static_cast<uint64_t>(blockLength) * channels * (bitsPerSample / 8u);
  if (bytes > kMaxPayloadSize) return kStatusTooLarge;
  return kStatusOk;
}

std::vector<TapEntry> DefaultTapTable() {
  struct Row {
    uint8_t core;
    const char* code;
    uint8_t index;
    uint8_t channels;
  };
  // Core 2: audio front end; core 3: hotword; core 4: voice processing.
  static const Row kRows[] = {
      {2, "imic", 0, 1}, {2, "sspk", 0, 2}, {2, "imic", 1, 1}, {2, "eref", 0, 2},
      {2, "aecr", 0, 1}, {3, "hwin", 0, 1}, {3, "hwdt", 0, 1}, {4, "vpdl", 0, 1},
      {4, "vpul", 1, 2}, {4, "vprx", 0, 1}, {4, "vptx", 0, 1},
  };
  std::vector<TapEntry> taps;
  for (const Row& r : kRows) {
    TapEntry t;
    t.core = r.core;
    t.code = FourCc(r.code);
    t.index = r.index;
    t.channels = r.channels;
    taps.push_back(t);
  }
  return taps;
}

bool ParseTapTable(const std::string& text, std::vector<TapEntry>* out, std::string* error) {
  std::vector<TapEntry> taps;
  std::set<std::tuple<uint8_t, uint32_t, uint8_t>> seen;
  std::set<uint8_t> boundOut, boundIn;
  std::istringstream in(text);
  std::string raw;
  size_t lineNo = 0;
  while (std::getline(in, raw)) {
    ++lineNo;
    size_t hash = raw.find('#');
    if (hash != std::string::npos) raw.resize(hash);
    std::istringstream fields(raw);
    std::vector<std::string> f;
    std::string word;
    while (fields >> word) f.push_back(word);
    if (f.empty()) continue;
    if (f.size() < 6) {
      *error = Line(lineNo, "expected CORE CODE.INDEX RATE BLOCK CHANNELS BITS");
      return false;
    }
    TapEntry t;
    unsigned long v;
    if (!ParseUnsigned(f[0], 255, &v)) {
      *error = Line(lineNo, "bad core '" + f[0] + "' (0..255)");
      return false;
    }
    t.core = static_cast<uint8_t>(v);
    size_t dot = f[1].rfind('.');
    if (dot != 4) {
      *error = Line(lineNo, "bad tap '" + f[1] + "' (four characters, '.', index)");
      return false;
    }
    for (size_t i = 0; i < 4; ++i) {
      unsigned char c = static_cast<unsigned char>(f[1][i]);
      if (c < 0x21 || c > 0x7E) {
        *error = Line(lineNo, "bad tap code '" + f[1].substr(0, 4) + "'");
        return false;
      }
    }
    t.code = FourCc(f[1].c_str());
    if (!ParseUnsigned(f[1].substr(dot + 1), 255, &v)) {
      *error = Line(lineNo, "bad tap index in '" + f[1] + "' (0..255)");
      return false;
    }
    t.index = static_cast<uint8_t>(v);
    if (!ParseUnsigned(f[2], kMaxSampleRate, &v) || v == 0) {
      *error = Line(lineNo, "bad sample rate '" + f[2] + "' (1..384000 Hz)");
      return false;
    }
    t.sampleRate = static_cast<uint32_t>(v);
    if (!ParseUnsigned(f[3], 0xFFFFFFFFul, &v)) {
      *error = Line(lineNo, "bad block length '" + f[3] + "'");
      return false;
    }
    t.blockLength = static_cast<uint32_t>(v);
    if (!ParseUnsigned(f[4], kMaxChannels, &v) || v == 0) {
      *error = Line(lineNo, "bad channel count '" + f[4] + "' (1..8)");
      return false;
    }
    t.channels = static_cast<uint8_t>(v);
    if (!ParseUnsigned(f[5], 32, &v) || (v != 16 && v != 24 && v != 32)) {
      *error = Line(lineNo, "bad bits per sample '" + f[5] + "' (16, 24 or 32)");
      return false;
    }
    t.bitsPerSample = static_cast<uint8_t>(v);
    int16_t st = CheckBlockLength(t.blockLength, t.channels, t.bitsPerSample);
    if (st != kStatusOk) {
      *error =
          Line(lineNo, st == kStatusBadValue ? "block length must be a positive multiple of 480"
                                             : "block does not fit a 65472-byte payload");
      return false;
    }
    for (size_t i = 6; i < f.size(); ++i) {
      size_t eq = f[i].find('=');
      std::string key = eq == std::string::npos ? f[i] : f[i].substr(0, eq);
      std::string val = eq == std::string::npos ? std::string() : f[i].substr(eq + 1);
      bool ok = eq != std::string::npos;
      if (ok && key == "enabled") {
        ok = val == "0" || val == "1";
        t.enabled = val == "1";
      } else if (ok && key == "extra") {
        ok = ParseUnsigned(val, 255, &v);
        if (ok) t.extra = static_cast<uint8_t>(v);
      } else if (ok && key == "tapout") {
        ok = ParseBufferId(val, &t.tapOut);
      } else if (ok && key == "inject") {
        ok = ParseBufferId(val, &t.inject);
      } else if (ok && key == "tone") {
        char* end = nullptr;
        errno = 0;
        double hz = std::strtod(val.c_str(), &end);
        ok = errno == 0 && end != val.c_str() && *end == '\0' && hz > 0 && hz < t.sampleRate / 2.0;
        if (ok) t.toneHz = hz;
      } else if (ok && key == "phase") {
        // Checked against the period once the whole line is read.
        ok = ParseUnsigned(val, 0xFFFFFFFFul, &v);
        if (ok) t.phaseUs = static_cast<int64_t>(v);
      } else {
        ok = false;
      }
      if (!ok) {
        *error = Line(lineNo, "bad option '" + f[i] +
                                  "' (enabled=0|1, extra=N, tapout=ID|none, inject=ID|none, "
                                  "tone=HZ below half the rate, phase=US)");
        return false;
      }
    }
    if (t.phaseUs >= 0 &&
        static_cast<uint64_t>(t.phaseUs) * t.sampleRate >= uint64_t{t.blockLength} * 1000000u) {
      *error = Line(lineNo, "phase " + std::to_string(t.phaseUs) + " us is not below the block period");
      return false;
    }
    if (!seen.insert({t.core, t.code, t.index}).second) {
      *error = Line(lineNo, "duplicate tap " + TapLongName(t));
      return false;
    }
    if (t.tapOut != kNoBuffer && !boundOut.insert(t.tapOut).second) {
      *error = Line(lineNo, "tap-out buffer " + std::to_string(t.tapOut) + " bound twice");
      return false;
    }
    if (t.inject != kNoBuffer && !boundIn.insert(t.inject).second) {
      *error = Line(lineNo, "inject buffer " + std::to_string(t.inject) + " bound twice");
      return false;
    }
    size_t onCore = 0;
    for (const TapEntry& o : taps) onCore += o.core == t.core;
    if (onCore >= kMaxTapsPerCore) {
      *error = Line(lineNo, "more than 256 taps on core " + std::to_string(t.core));
      return false;
    }
    taps.push_back(t);
  }
  if (taps.empty()) {
    *error = "no taps in the table";
    return false;
  }
  *out = std::move(taps);
  return true;
}

bool LoadTapTableFile(const std::string& path, std::vector<TapEntry>* out, std::string* error) {
  FILE* f = std::fopen(path.c_str(), "re");
  if (f == nullptr) {
    *error = path + ": cannot open: " + std::strerror(errno);
    return false;
  }
  std::string text;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
    text.append(buf, n);
    if (text.size() > (1u << 20)) {
      std::fclose(f);
      *error = path + ": larger than 1 MiB";
      return false;
    }
  }
  bool readError = std::ferror(f) != 0;
  std::fclose(f);
  if (readError) {
    *error = path + ": read error";
    return false;
  }
  if (!ParseTapTable(text, out, error)) {
    *error = path + ": " + *error;
    return false;
  }
  return true;
}

std::string FormatTapTable(const std::vector<TapEntry>& taps) {
  std::string out =
      "# core tap      rate   block ch bits [enabled=0|1 extra=N tapout=ID|none "
      "inject=ID|none tone=HZ phase=US]\n";
  for (const TapEntry& t : taps) {
    char line[160];
    std::snprintf(line, sizeof line, "%-6u %-8s %-6u %-5u %-2u %u", t.core, TapName(t).c_str(),
                  t.sampleRate, t.blockLength, t.channels, t.bitsPerSample);
    out += line;
    if (t.enabled) out += " enabled=1";
    if (t.extra != 0) out += " extra=" + std::to_string(t.extra);
    if (t.tapOut != kNoBuffer) out += " tapout=" + std::to_string(t.tapOut);
    if (t.inject != kNoBuffer) out += " inject=" + std::to_string(t.inject);
    if (t.toneHz > 0) {
      char tone[40];
      std::snprintf(tone, sizeof tone, " tone=%g", t.toneHz);
      out += tone;
    }
    if (t.phaseUs >= 0) out += " phase=" + std::to_string(t.phaseUs);
    out += "\n";
  }
  return out;
}

double ToneFrequency(const TapEntry& tap, size_t position, uint32_t channel) {
  double base = tap.toneHz > 0 ? tap.toneHz : 250.0 * static_cast<double>(position + 1);
  double f = base * (channel + 1);
  double nyquist = tap.sampleRate / 2.0;
  // Fold into (0, nyquist) so every channel still carries a tone.
  f = std::fmod(f, nyquist);
  if (f < 1.0) f = nyquist / 3.0;
  return f;
}

}  // namespace lumx::dspsim
