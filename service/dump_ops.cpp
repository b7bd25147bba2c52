// The service's dump: what `dumpsys lumx.ILumx/default` prints, the state
// and counters of the daemon, its buffers and its processors.
//
// Arguments: none for the text form, "--json" for one JSON object, "--reset"
// to clear every counter once it has been read (the dump shows the values it
// cleared). An unknown argument is named on a line of its own first and
// otherwise ignored.
//
// The dump never takes the service mutex, which a DSP command holds for its
// whole reply budget (and commandMutex likewise): it pins the buffers and
// processors it finds under the registry's own small locks, reads their
// counters (relaxed atomics, each whole, not a consistent set) and names,
// formats, and writes the text to the caller's descriptor with a deadline.
// Nothing it does waits on a device or the DSP.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/lumx_utils.h"
#include "common/unique_fd.h"
#include "daemon/lumxd.h"
#include "processors/audio_relay_processor.h"
#include "processors/lumx_processor.h"
#include "service/lumx_service.h"

namespace {

// How long the whole text may take to reach the caller's descriptor. A
// caller that does not read (or is gone) loses the rest; the binder thread
// is free again by then.
constexpr int64_t kWriteBudgetNs = 500000000;
// An argument is echoed in the unknown-argument line up to this length.
constexpr size_t kMaxEchoedArg = 200;

int64_t NowNs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

double Seconds(int64_t ns) { return static_cast<double>(ns) / 1e9; }

// ---- What the dump shows, copied before it is formatted ----

struct LastError {
  bool set = false;
  int64_t code = 0;
  int64_t ageNs = 0;
};

LastError ReadLastError(const lumx::StatLastError& e, int64_t now) {
  LastError out;
  const int64_t at = e.atNs();
  if (at == 0) return out;
  out.set = true;
  out.code = e.code();
  out.ageNs = now > at ? now - at : 0;
  return out;
}

struct TapOutView {
  int32_t id = 0;
  std::string name;
  bool enabled = false;
  bool running = false;
  std::string tap;  // empty: never bound
  std::vector<std::string> outputs;
  LumxBuffer::FormatFields format = {};
  uint64_t packets = 0, bytes = 0, lost = 0;
  uint64_t cutAlignment = 0, cutVersion = 0, cutOversize = 0, cutNoMagic = 0, cutExcess = 0, skippedBytes = 0;
  uint64_t readErrors = 0, reopens = 0, eofEpisodes = 0;
  uint64_t p50 = 0, p99 = 0, max = 0, jitterMax = 0;
  LastError lastError;
};

struct InjectView {
  int32_t id = 0;
  std::string name;
  bool enabled = false;
  std::string tap;
  std::string input;  // empty: none
  uint64_t packets = 0;
  uint64_t failures[LumxBufferStats::kTxFailureKinds] = {};
  uint64_t timeouts = 0;
  uint64_t cut = 0;
};

struct ProcessorView {
  std::string id;
  std::string type;
  bool enabled = false;
  std::string input;
  std::string output;
  uint64_t blocks = 0;
  uint64_t failed = 0;
  bool relay = false;
  RelayClientStats client;
};

struct DumpView {
  int64_t uptimeNs = 0;
  bool wakeLockHeld = false;
  uint64_t wakeLockHeldNs = 0;
  uint64_t wakeLockAcquisitions = 0;
  bool controlOpen = false;
  uint64_t commands = 0, timeouts = 0, unmatchedReplies = 0, reopens = 0;
  LastError controlError;
  uint64_t watchEvents = 0;
  uint64_t rescans = 0;
  std::vector<TapOutView> tapOuts;
  std::vector<InjectView> injects;
  std::vector<ProcessorView> processors;
};

// Status codes of the write-failure kinds, in LumxBufferStats order; the
// sixth kind holds any other code, which the write path does not produce.
constexpr int kTxFailureCodes[LumxBufferStats::kTxFailureKinds] = {-1, -2, -3, -4, -5, 0, kLumWriteTimedOut};

std::string TapText(const LumxService::TapBinding& t) {
  return std::to_string(t.core) + ":" + FourCcToString(t.code) + "." + std::to_string(t.index);
}

std::string TapOf(const std::map<int32_t, LumxService::TapBinding>& taps, int32_t id) {
  auto it = taps.find(id);
  return it == taps.end() ? std::string() : TapText(it->second);
}

// ---- Text ----

// Names come from clients (four arbitrary bytes): control bytes and bytes
// outside ASCII print as \xHH.
std::string Printable(const std::string& s) {
  std::string out;
  for (unsigned char c : s) {
    if (c >= 0x20 && c < 0x7f) {
      out += static_cast<char>(c);
    } else {
      char hex[5];
      snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    }
  }
  return out;
}

void Appendf(std::string& out, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void Appendf(std::string& out, const char* fmt, ...) {
  char line[512];
  va_list ap;
  va_start(ap, fmt);
  const int n = vsnprintf(line, sizeof line, fmt, ap);
  va_end(ap);
  if (n > 0) out.append(line, static_cast<size_t>(n) < sizeof line ? static_cast<size_t>(n) : sizeof line - 1);
}

std::string ErrorText(const LastError& e) {
  if (!e.set) return "none";
  char text[64];
  snprintf(text, sizeof text, "%" PRId64 ", %.3f s ago", e.code, Seconds(e.ageNs));
  return text;
}

std::string Joined(const std::vector<std::string>& names) {
  if (names.empty()) return "none";
  std::string out;
  for (const std::string& n : names) out += (out.empty() ? "" : ",") + Printable(n);
  return out;
}

std::string OrNone(const std::string& s) { return s.empty() ? "none" : Printable(s); }

std::string FormatText(const DumpView& v) {
  std::string out;
  out += "lumxd\n";
  Appendf(out, "  interface version %d, hash %s\n", static_cast<int>(::aidl::lumx::ILumx::version),
          ::aidl::lumx::ILumx::hash.c_str());
  Appendf(out, "  uptime %.3f s\n", Seconds(v.uptimeNs));
  out += "wake lock\n";
  Appendf(out, "  %s, held %.3f s in all, %" PRIu64 " acquisitions\n", v.wakeLockHeld ? "held" : "not held",
          Seconds(static_cast<int64_t>(v.wakeLockHeldNs)), v.wakeLockAcquisitions);
  out += "control channel\n";
  Appendf(out, "  %s, %" PRIu64 " commands, %" PRIu64 " time-outs, %" PRIu64 " unmatched replies, %" PRIu64
          " re-opens\n", v.controlOpen ? "open" : "closed", v.commands, v.timeouts, v.unmatchedReplies, v.reopens);
  Appendf(out, "  last error %s\n", ErrorText(v.controlError).c_str());
  out += "device watch\n";
  Appendf(out, "  %" PRIu64 " events, %" PRIu64 " rescans\n", v.watchEvents, v.rescans);

  out += "tap-out buffers\n";
  if (v.tapOuts.empty()) out += "  none\n";
  for (const TapOutView& b : v.tapOuts) {
    Appendf(out, "  %s (id %d): %s, I/O thread %s, tap %s, outputs %s\n", b.name.c_str(), b.id,
            b.enabled ? "enabled" : "disabled", b.running ? "running" : "not running", OrNone(b.tap).c_str(),
            Joined(b.outputs).c_str());
    const LumxBuffer::FormatFields& f = b.format;
    if (f.sampleRate == 0 && f.channels == 0 && f.bytesPerSample == 0 && f.payloadSize == 0) {
      out += "    format unknown (no packet yet)\n";
    } else {
      const uint32_t frame = f.channels * f.bytesPerSample;
      Appendf(out, "    format %u Hz, %u ch, %u bytes/sample, payload %u, block length %u\n", f.sampleRate, f.channels,
              f.bytesPerSample, f.payloadSize, frame == 0 ? 0 : f.payloadSize / frame);
    }
    Appendf(out, "    %" PRIu64 " packets, %" PRIu64 " bytes, %" PRIu64 " lost\n", b.packets, b.bytes, b.lost);
    Appendf(out, "    cut: %" PRIu64 " alignment, %" PRIu64 " version, %" PRIu64 " oversize, %" PRIu64
            " no magic, %" PRIu64 " excess; %" PRIu64 " bytes skipped\n", b.cutAlignment, b.cutVersion,
            b.cutOversize, b.cutNoMagic, b.cutExcess, b.skippedBytes);
    Appendf(out, "    %" PRIu64 " read errors, %" PRIu64 " re-opens, %" PRIu64 " end-of-file episodes\n", b.readErrors,
            b.reopens, b.eofEpisodes);
    Appendf(out, "    processing p50 %" PRIu64 " us, p99 %" PRIu64 " us, max %" PRIu64 " us; jitter max %" PRIu64
            " us\n", b.p50, b.p99, b.max, b.jitterMax);
    Appendf(out, "    last error %s\n", ErrorText(b.lastError).c_str());
  }

  out += "inject buffers\n";
  if (v.injects.empty()) out += "  none\n";
  for (const InjectView& b : v.injects) {
    Appendf(out, "  %s (id %d): %s, tap %s, input %s\n", b.name.c_str(), b.id, b.enabled ? "enabled" : "disabled",
            OrNone(b.tap).c_str(), OrNone(b.input).c_str());
    std::string failures;
    for (size_t k = 0; k < LumxBufferStats::kTxFailureKinds; ++k) {
      if (b.failures[k] == 0) continue;
      if (!failures.empty()) failures += ", ";
      if (kTxFailureCodes[k] == 0) {
        Appendf(failures, "%" PRIu64 " other", b.failures[k]);
      } else {
        Appendf(failures, "%" PRIu64 " x %d", b.failures[k], kTxFailureCodes[k]);
      }
    }
    Appendf(out, "    %" PRIu64 " packets, write failures %s, %" PRIu64 " write time-outs, %" PRIu64 " cut\n",
            b.packets, failures.empty() ? "none" : failures.c_str(), b.timeouts, b.cut);
  }

  out += "processors\n";
  if (v.processors.empty()) out += "  none\n";
  for (const ProcessorView& p : v.processors) {
    Appendf(out, "  %s (%s): %s, input %s, output %s, %" PRIu64 " blocks, %" PRIu64 " failed\n",
            Printable(p.id).c_str(), Printable(p.type).c_str(), p.enabled ? "enabled" : "disabled",
            OrNone(p.input).c_str(), OrNone(p.output).c_str(), p.blocks, p.failed);
    if (!p.relay) continue;
    const RelayClientStats& c = p.client;
    if (c.registered) {
      Appendf(out, "    client pid %d: ", static_cast<int>(c.pid));
    } else {
      out += "    no client: ";
    }
    Appendf(out, "%" PRIu64 " sent, %" PRIu64 " failed, %" PRIu64 " dropped, %u queued\n", c.sent, c.failed, c.dropped,
            static_cast<unsigned>(c.queued));
  }
  return out;
}

// ---- JSON ----

class Json {
 public:
  std::string out;

  Json& Key(const char* k) {
    Comma();
    out += '"';
    out += k;
    out += "\":";
    fresh_ = true;
    return *this;
  }
  void Open(char c) {
    Comma();
    out += c;
    fresh_ = true;
  }
  void Close(char c) {
    out += c;
    fresh_ = false;
  }
  void U(uint64_t v) { Raw(std::to_string(v)); }
  void I(int64_t v) { Raw(std::to_string(v)); }
  void B(bool v) { Raw(v ? "true" : "false"); }
  void Null() { Raw("null"); }
  void S(const std::string& s) {
    Comma();
    out += '"';
    for (unsigned char c : s) {
      if (c == '"' || c == '\\') {
        out += '\\';
        out += static_cast<char>(c);
      } else if (c >= 0x20 && c < 0x7f) {
        out += static_cast<char>(c);
      } else {
        // Also bytes outside ASCII: names are bytes, not text.
        char esc[8];
        snprintf(esc, sizeof esc, "\\u%04x", c);
        out += esc;
      }
    }
    out += '"';
    fresh_ = false;
  }
  void StrOrNull(const std::string& s) { s.empty() ? Null() : S(s); }
  void Secs(int64_t ns) {
    char text[32];
    snprintf(text, sizeof text, "%.3f", Seconds(ns));
    Raw(text);
  }
  void Error(const LastError& e) {
    if (!e.set) return Null();
    Open('{');
    Key("code").I(e.code);
    Key("age_s").Secs(e.ageNs);
    Close('}');
  }

 private:
  void Comma() {
    if (!fresh_ && !out.empty()) out += ',';
    fresh_ = false;
  }
  void Raw(const std::string& v) {
    Comma();
    out += v;
  }
  bool fresh_ = true;
};

std::string FormatJson(const DumpView& v) {
  Json j;
  j.Open('{');
  j.Key("interface").Open('{');
  j.Key("version").I(::aidl::lumx::ILumx::version);
  j.Key("hash").S(::aidl::lumx::ILumx::hash);
  j.Close('}');
  j.Key("uptime_s").Secs(v.uptimeNs);
  j.Key("wake_lock").Open('{');
  j.Key("held").B(v.wakeLockHeld);
  j.Key("held_s").Secs(static_cast<int64_t>(v.wakeLockHeldNs));
  j.Key("acquisitions").U(v.wakeLockAcquisitions);
  j.Close('}');
  j.Key("control").Open('{');
  j.Key("open").B(v.controlOpen);
  j.Key("commands").U(v.commands);
  j.Key("timeouts").U(v.timeouts);
  j.Key("unmatched_replies").U(v.unmatchedReplies);
  j.Key("reopens").U(v.reopens);
  j.Key("last_error").Error(v.controlError);
  j.Close('}');
  j.Key("device_watch").Open('{');
  j.Key("events").U(v.watchEvents);
  j.Key("rescans").U(v.rescans);
  j.Close('}');

  j.Key("tapout_buffers").Open('[');
  for (const TapOutView& b : v.tapOuts) {
    j.Open('{');
    j.Key("id").I(b.id);
    j.Key("name").S(b.name);
    j.Key("enabled").B(b.enabled);
    j.Key("running").B(b.running);
    j.Key("tap").StrOrNull(b.tap);
    j.Key("outputs").Open('[');
    for (const std::string& o : b.outputs) j.S(o);
    j.Close(']');
    const LumxBuffer::FormatFields& f = b.format;
    j.Key("format");
    if (f.sampleRate == 0 && f.channels == 0 && f.bytesPerSample == 0 && f.payloadSize == 0) {
      j.Null();
    } else {
      const uint32_t frame = f.channels * f.bytesPerSample;
      j.Open('{');
      j.Key("rate").U(f.sampleRate);
      j.Key("channels").U(f.channels);
      j.Key("bytes_per_sample").U(f.bytesPerSample);
      j.Key("payload").U(f.payloadSize);
      j.Key("block_length").U(frame == 0 ? 0 : f.payloadSize / frame);
      j.Close('}');
    }
    j.Key("packets").U(b.packets);
    j.Key("bytes").U(b.bytes);
    j.Key("lost").U(b.lost);
    j.Key("cut").Open('{');
    j.Key("alignment").U(b.cutAlignment);
    j.Key("version").U(b.cutVersion);
    j.Key("oversize").U(b.cutOversize);
    j.Key("no_magic").U(b.cutNoMagic);
    j.Key("excess").U(b.cutExcess);
    j.Close('}');
    j.Key("skipped_bytes").U(b.skippedBytes);
    j.Key("read_errors").U(b.readErrors);
    j.Key("reopens").U(b.reopens);
    j.Key("eof_episodes").U(b.eofEpisodes);
    j.Key("process_us").Open('{');
    j.Key("p50").U(b.p50);
    j.Key("p99").U(b.p99);
    j.Key("max").U(b.max);
    j.Close('}');
    j.Key("jitter_max_us").U(b.jitterMax);
    j.Key("last_error").Error(b.lastError);
    j.Close('}');
  }
  j.Close(']');

  j.Key("inject_buffers").Open('[');
  for (const InjectView& b : v.injects) {
    j.Open('{');
    j.Key("id").I(b.id);
    j.Key("name").S(b.name);
    j.Key("enabled").B(b.enabled);
    j.Key("tap").StrOrNull(b.tap);
    j.Key("input").StrOrNull(b.input);
    j.Key("packets").U(b.packets);
    j.Key("write_failures").Open('{');
    for (size_t k = 0; k < LumxBufferStats::kTxFailureKinds; ++k) {
      if (b.failures[k] == 0) continue;
      j.Key(kTxFailureCodes[k] == 0 ? "other" : std::to_string(kTxFailureCodes[k]).c_str()).U(b.failures[k]);
    }
    j.Close('}');
    j.Key("write_timeouts").U(b.timeouts);
    j.Key("cut").U(b.cut);
    j.Close('}');
  }
  j.Close(']');

  j.Key("processors").Open('[');
  for (const ProcessorView& p : v.processors) {
    j.Open('{');
    j.Key("id").S(p.id);
    j.Key("type").S(p.type);
    j.Key("enabled").B(p.enabled);
    j.Key("input").StrOrNull(p.input);
    j.Key("output").StrOrNull(p.output);
    j.Key("blocks").U(p.blocks);
    j.Key("failed").U(p.failed);
    if (p.relay) {
      const RelayClientStats& c = p.client;
      j.Key("client").Open('{');
      j.Key("registered").B(c.registered);
      j.Key("pid");
      c.registered ? j.I(c.pid) : j.Null();
      j.Key("sent").U(c.sent);
      j.Key("failed").U(c.failed);
      j.Key("dropped").U(c.dropped);
      j.Key("queued").U(c.queued);
      j.Close('}');
    }
    j.Close('}');
  }
  j.Close(']');
  j.Close('}');
  j.out += '\n';
  return j.out;
}

// ---- Writing to the caller ----

// Writes `text` to `fd` within kWriteBudgetNs, never blocking past it, and
// without ever raising SIGPIPE. The descriptor is the caller's: its file
// status flags are shared with the caller and stay untouched. A socket is
// written with MSG_DONTWAIT; a pipe, FIFO or terminal through a second,
// non-blocking open of the same object; a regular file (which never makes a
// writer wait for a reader) directly.
bool WriteBounded(int fd, const std::string& text) {
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  const bool isSocket = S_ISSOCK(st.st_mode);
  lumx::unique_fd reopened;
  int wfd = fd;
  if (!isSocket && !S_ISREG(st.st_mode)) {
    char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    reopened.reset(open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    // A pipe without reader refuses the open (ENXIO): nobody will read.
    if (!reopened.ok() && errno == ENXIO) return false;
    // Otherwise (no /proc), the descriptor as it is: poll first and write
    // at most what a pipe takes at once without blocking.
    if (reopened.ok()) wfd = reopened.get();
  }
  const bool mayBlock = !isSocket && !reopened.ok() && (fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;

  // A reader that went away must not end the daemon (main ignores SIGPIPE,
  // a test or another host may not): block it here, and take back one that
  // this write raised.
  sigset_t pipeSet;
  sigset_t previous;
  sigemptyset(&pipeSet);
  sigaddset(&pipeSet, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSet, &previous);
  sigset_t pendingBefore;
  sigpending(&pendingBefore);

  const int64_t deadline = NowNs() + kWriteBudgetNs;
  size_t done = 0;
  bool ok = true;
  while (done < text.size()) {
    if (mayBlock) {
      pollfd p = {wfd, POLLOUT, 0};
      const int64_t left = deadline - NowNs();
      if (left <= 0 || poll(&p, 1, static_cast<int>((left + 999999) / 1000000)) <= 0 || (p.revents & POLLOUT) == 0) {
        ok = false;
        break;
      }
    }
    size_t chunk = text.size() - done;
    if (mayBlock && chunk > PIPE_BUF) chunk = PIPE_BUF;
    const ssize_t n = isSocket ? send(wfd, text.data() + done, chunk, MSG_DONTWAIT | MSG_NOSIGNAL)
                               : write(wfd, text.data() + done, chunk);
    if (n > 0) {
      done += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      ok = false;
      break;
    }
    const int64_t left = deadline - NowNs();
    if (left <= 0) {
      ok = false;
      break;
    }
    pollfd p = {wfd, POLLOUT, 0};
    poll(&p, 1, static_cast<int>((left + 999999) / 1000000));
  }

  if (sigismember(&pendingBefore, SIGPIPE) == 0) {
    sigset_t pendingNow;
    sigpending(&pendingNow);
    if (sigismember(&pendingNow, SIGPIPE) == 1) {
      const struct timespec zero = {0, 0};
      sigtimedwait(&pipeSet, nullptr, &zero);
    }
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  return ok;
}

}  // namespace

// What the dump holds while it reads: every buffer pinned (its destruction
// waits), every processor pinned (a delete leaves the last unpin to free it).
struct LumxService::DumpPins {
  std::vector<std::pair<int32_t, LumxBuffer*>> tapOuts;
  std::vector<std::pair<int32_t, LumxBuffer*>> injects;
  std::map<int32_t, TapBinding> tapOutTaps;
  std::map<int32_t, TapBinding> injectTaps;
  std::vector<LumxProcessor*> processors;
};

// The maps' membership changes only under registryMutex_ (buffers) and
// gProcessorPinMutex (processors), besides mutex_, which this does not take.
void LumxService::pinForDump(DumpPins* pins) NO_THREAD_SAFETY_ANALYSIS {
  {
    lumx::MutexLock lock(&registryMutex_);
    for (auto& entry : tapOutBuffers_) {
      entry.second.AcquireUse();
      pins->tapOuts.emplace_back(entry.first, &entry.second);
    }
    for (auto& entry : injectBuffers_) {
      entry.second.AcquireUse();
      pins->injects.emplace_back(entry.first, &entry.second);
    }
    pins->tapOutTaps = tapOutTaps_;
    pins->injectTaps = injectTaps_;
  }
  lumx::MutexLock lock(&gProcessorPinMutex);
  for (auto& entry : processors_) {
    if (entry.second == nullptr) continue;
    entry.second->Pin();
    pins->processors.push_back(entry.second);
  }
}

void LumxService::unpinAfterDump(const DumpPins& pins) {
  for (const auto& entry : pins.tapOuts) entry.second->ReleaseUse();
  for (const auto& entry : pins.injects) entry.second->ReleaseUse();
  for (LumxProcessor* p : pins.processors) {
    bool lastOfRetired;
    {
      lumx::MutexLock lock(&gProcessorPinMutex);
      lastOfRetired = p->Unpin();
    }
    // Deleted meanwhile, and already unwired then: only the object is left.
    if (lastOfRetired) delete p;
  }
}

binder_status_t LumxService::dump(int fd, const char** args, uint32_t numArgs) {
  bool json = false;
  bool reset = false;
  std::string header;
  for (uint32_t i = 0; i < numArgs; ++i) {
    const std::string arg = args != nullptr && args[i] != nullptr ? args[i] : "";
    if (arg == "--json") {
      json = true;
    } else if (arg == "--reset") {
      reset = true;
    } else {
      std::string shown = Printable(arg.substr(0, kMaxEchoedArg));
      if (arg.size() > kMaxEchoedArg) shown += "...";
      header += "unknown argument '" + shown + "'\n";
    }
  }

  DumpView v;
  Lumxd& daemon = Lumxd::Instance();
  const int64_t now = NowNs();
  v.uptimeNs = now - daemon.startNs();
  v.wakeLockHeld = daemon.wakeLockHeldNow();
  v.wakeLockHeldNs = daemon.wakeLockHeldNs();
  v.wakeLockAcquisitions = daemon.wakeLockStats().acquisitions.Get();
  const Lumxd::ControlStats& control = daemon.controlStats();
  v.controlOpen = daemon.controlOpenNow();
  v.commands = control.commands.Get();
  v.timeouts = control.timeouts.Get();
  v.unmatchedReplies = control.unmatchedReplies.Get();
  v.reopens = control.reopens.Get();
  v.controlError = ReadLastError(control.lastError, now);
  v.watchEvents = daemon.watchStats().events.Get();
  v.rescans = rescans_.Get();
  if (reset) {
    daemon.resetStats();
    rescans_.Reset();
  }

  DumpPins pins;
  pinForDump(&pins);
  auto bufferName = [](const std::vector<std::pair<int32_t, LumxBuffer*>>& buffers, const LumxBuffer* b) {
    for (const auto& entry : buffers) {
      if (entry.second == b) return entry.second->name();
    }
    // None, or one on its way out: not pinned, so never looked at.
    return std::string();
  };

  v.tapOuts.reserve(pins.tapOuts.size());
  for (const auto& entry : pins.tapOuts) {
    LumxBuffer& buffer = *entry.second;
    const LumxBufferStats& s = buffer.stats();
    TapOutView b;
    b.id = entry.first;
    b.name = buffer.name();
    b.enabled = buffer.isEnabled();
    b.running = buffer.ioThreadAlive();
    b.tap = TapOf(pins.tapOutTaps, entry.first);
    b.outputs = buffer.outputNames();
    b.format = buffer.formatFields();
    b.packets = s.rxPackets.Get();
    b.bytes = s.rxBytes.Get();
    b.lost = s.rxLost.Get();
    b.cutAlignment = s.cutAlignment.Get();
    b.cutVersion = s.cutVersion.Get();
    b.cutOversize = s.cutOversize.Get();
    b.cutNoMagic = s.cutNoMagic.Get();
    b.cutExcess = s.cutExcess.Get();
    b.skippedBytes = s.skippedBytes.Get();
    b.readErrors = s.readErrors.Get();
    b.reopens = s.reopens.Get();
    b.eofEpisodes = s.eofEpisodes.Get();
    b.p50 = s.processUs.Percentile(50);
    b.p99 = s.processUs.Percentile(99);
    b.max = s.processUs.Max();
    b.jitterMax = s.jitterMaxUs.Get();
    b.lastError = ReadLastError(s.lastError, now);
    if (reset) buffer.resetStats();
    v.tapOuts.push_back(std::move(b));
  }
  v.injects.reserve(pins.injects.size());
  for (const auto& entry : pins.injects) {
    LumxBuffer& buffer = *entry.second;
    const LumxBufferStats& s = buffer.stats();
    InjectView b;
    b.id = entry.first;
    b.name = buffer.name();
    b.enabled = buffer.isEnabled();
    b.tap = TapOf(pins.injectTaps, entry.first);
    b.input = buffer.inputName();
    b.packets = s.txPackets.Get();
    for (size_t k = 0; k < LumxBufferStats::kTxFailureKinds; ++k) b.failures[k] = s.txFailures[k].Get();
    b.timeouts = s.txTimeouts.Get();
    b.cut = s.txCut.Get();
    if (reset) buffer.resetStats();
    v.injects.push_back(std::move(b));
  }
  v.processors.reserve(pins.processors.size());
  for (LumxProcessor* p : pins.processors) {
    ProcessorView pv;
    pv.id = p->idName();
    pv.type = p->typeName();
    pv.enabled = p->IsEnabled();
    pv.input = bufferName(pins.tapOuts, p->input());
    pv.output = bufferName(pins.injects, p->output());
    pv.blocks = p->blocksProcessed();
    pv.failed = p->blocksFailed();
    if (p->type() == kProcessorTypeArel) {
      // Its lock is held by the I/O thread for one block at most, never
      // across a client call.
      auto* relay = static_cast<AudioRelayProcessor*>(p);
      pv.relay = true;
      pv.client = relay->clientStats();
      if (reset) relay->resetStats();
    } else if (reset) {
      p->resetStats();
    }
    v.processors.push_back(std::move(pv));
  }
  unpinAfterDump(pins);

  header += json ? FormatJson(v) : FormatText(v);
  WriteBounded(fd, header);
  return STATUS_OK;
}
