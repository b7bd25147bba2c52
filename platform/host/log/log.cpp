// Host liblog: logcat-style lines on stderr (one per line of a message), a
// minimum priority from $LUMX_LOG_LEVEL and an in-process capture for tests.
#include <android/log.h>
#include <lumx_host/log_capture.h>

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/thread_annotations.h"

namespace lumx_host {

struct LogCapture::State {
  lumx::Mutex mu;
  std::vector<LogEntry> entries GUARDED_BY(mu);
  bool echo GUARDED_BY(mu) = true;
};

namespace {

// Matches the buffer liblog formats into: 1024 bytes with the terminator.
constexpr size_t kMaxMessage = 1023;

// The live captures. Leaked on purpose so logging from threads that outlive
// static destruction stays safe.
struct Registry {
  lumx::Mutex mu;
  std::vector<std::shared_ptr<LogCapture::State>> captures GUARDED_BY(mu);
};

Registry& registry() {
  static Registry* r = new Registry();
  return *r;
}

char PriorityLetter(int prio) {
  switch (prio) {
    case ANDROID_LOG_VERBOSE: return 'V';
    case ANDROID_LOG_DEBUG: return 'D';
    case ANDROID_LOG_INFO: return 'I';
    case ANDROID_LOG_WARN: return 'W';
    case ANDROID_LOG_ERROR: return 'E';
    case ANDROID_LOG_FATAL: return 'F';
    case ANDROID_LOG_SILENT: return 'S';
    default: return '?';
  }
}

// The minimum priority that gets logged, from $LUMX_LOG_LEVEL.
int MinPriority() {
  const char* env = getenv("LUMX_LOG_LEVEL");
  if (env == nullptr || env[0] == '\0') return ANDROID_LOG_VERBOSE;
  if (env[1] == '\0') {
    switch (env[0]) {
      case 'V': case 'v': return ANDROID_LOG_VERBOSE;
      case 'D': case 'd': return ANDROID_LOG_DEBUG;
      case 'I': case 'i': return ANDROID_LOG_INFO;
      case 'W': case 'w': return ANDROID_LOG_WARN;
      case 'E': case 'e': return ANDROID_LOG_ERROR;
      case 'F': case 'f': return ANDROID_LOG_FATAL;
      case 'S': case 's': return ANDROID_LOG_SILENT;
      default: break;
    }
  }
  char* end = nullptr;
  long v = strtol(env, &end, 10);
  if (end != env && *end == '\0' && v >= ANDROID_LOG_VERBOSE && v <= ANDROID_LOG_SILENT) {
    return static_cast<int>(v);
  }
  return ANDROID_LOG_VERBOSE;
}

bool IsLoggable(int prio) {
  // DEFAULT and UNKNOWN are not message priorities; treat them as verbose.
  if (prio < ANDROID_LOG_VERBOSE) prio = ANDROID_LOG_VERBOSE;
  if (prio >= ANDROID_LOG_SILENT) return false;
  return prio >= MinPriority();
}

int Emit(int prio, const char* tag, const char* msg) {
  if (!IsLoggable(prio)) return -EPERM;
  if (tag == nullptr) tag = "";
  if (msg == nullptr) msg = "(null)";
  std::string text(msg, strnlen(msg, kMaxMessage));

  bool echo = true;
  {
    Registry& r = registry();
    lumx::MutexLock l(&r.mu);
    for (auto& st : r.captures) {
      lumx::MutexLock sl(&st->mu);
      st->entries.push_back(LogEntry{prio, tag, text});
      if (!st->echo) echo = false;
    }
  }
  if (!echo) return 1;

  struct timeval tv;
  gettimeofday(&tv, nullptr);
  struct tm tm;
  localtime_r(&tv.tv_sec, &tm);
  char stamp[32];
  snprintf(stamp, sizeof(stamp), "%02d-%02d %02d:%02d:%02d.%03d", tm.tm_mon + 1, tm.tm_mday,
           tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<int>(tv.tv_usec / 1000));
  char head[96];
  snprintf(head, sizeof(head), "%s %5d %5d ", stamp, static_cast<int>(getpid()),
           static_cast<int>(syscall(SYS_gettid)));
  const std::string lines = FormatLogLines(head, prio, tag, text.c_str());
  // One write per message so concurrent messages do not interleave.
  const char* p = lines.data();
  size_t left = lines.size();
  while (left > 0) {
    ssize_t n = write(STDERR_FILENO, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      break;
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  return 1;
}

}  // namespace

std::string FormatLogLines(const char* head, int priority, const char* tag, const char* message) {
  if (tag == nullptr) tag = "";
  if (message == nullptr) message = "(null)";
  char prefix[16];
  snprintf(prefix, sizeof(prefix), "%c ", PriorityLetter(priority < ANDROID_LOG_VERBOSE
                                                              ? ANDROID_LOG_VERBOSE
                                                              : priority));
  std::string header = head;
  header += prefix;
  header += tag;
  if (strlen(tag) < 8) header.append(8 - strlen(tag), ' ');
  header += ": ";

  // Like logcat, every line of the message gets its own header (a final
  // newline ends the last line, it does not open an empty one). Bytes that
  // a terminal would take as moving the cursor are written escaped, so no
  // message can make its text look like a line of its own.
  std::string out = header;
  const size_t len = strlen(message);
  for (size_t i = 0; i < len; ++i) {
    const unsigned char c = static_cast<unsigned char>(message[i]);
    if (c == '\n') {
      out += '\n';
      if (i + 1 < len) out += header;
      continue;
    }
    const bool c1 = c == 0xc2 && i + 1 < len && static_cast<unsigned char>(message[i + 1]) >= 0x80 &&
                    static_cast<unsigned char>(message[i + 1]) <= 0x9f;  // U+0080..U+009F
    if ((c < 0x20 && c != '\t') || c == 0x7f || c1) {
      char esc[12];
      if (c1) {
        snprintf(esc, sizeof(esc), "\\x%02x\\x%02x", c, static_cast<unsigned char>(message[++i]));
      } else {
        snprintf(esc, sizeof(esc), "\\x%02x", c);
      }
      out += esc;
      continue;
    }
    out += static_cast<char>(c);
  }
  if (out.back() != '\n') out += '\n';
  return out;
}

std::string FormatLogLineTail(int priority, const char* tag, const char* message) {
  return FormatLogLines("", priority, tag, message);
}

LogCapture::LogCapture() : state_(std::make_shared<State>()) {
  Registry& r = registry();
  lumx::MutexLock l(&r.mu);
  r.captures.push_back(state_);
}

LogCapture::~LogCapture() {
  Registry& r = registry();
  lumx::MutexLock l(&r.mu);
  r.captures.erase(std::remove(r.captures.begin(), r.captures.end(), state_), r.captures.end());
}

std::vector<LogEntry> LogCapture::entries() const {
  lumx::MutexLock l(&state_->mu);
  return state_->entries;
}

std::vector<std::string> LogCapture::messages() const {
  std::vector<std::string> out;
  lumx::MutexLock l(&state_->mu);
  for (const auto& e : state_->entries) out.push_back(e.message);
  return out;
}

std::vector<std::string> LogCapture::messages(const std::string& tag) const {
  std::vector<std::string> out;
  lumx::MutexLock l(&state_->mu);
  for (const auto& e : state_->entries) {
    if (e.tag == tag) out.push_back(e.message);
  }
  return out;
}

size_t LogCapture::count(const std::string& needle) const {
  size_t n = 0;
  lumx::MutexLock l(&state_->mu);
  for (const auto& e : state_->entries) {
    if (e.message.find(needle) != std::string::npos) ++n;
  }
  return n;
}

void LogCapture::clear() {
  lumx::MutexLock l(&state_->mu);
  state_->entries.clear();
}

void LogCapture::setEcho(bool echo) {
  lumx::MutexLock l(&state_->mu);
  state_->echo = echo;
}

}  // namespace lumx_host

extern "C" {

int __android_log_write(int prio, const char* tag, const char* text) {
  return lumx_host::Emit(prio, tag, text);
}

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
  if (!lumx_host::IsLoggable(prio)) return -EPERM;
  char buf[lumx_host::kMaxMessage + 1];
  if (fmt == nullptr) {
    buf[0] = '\0';
  } else {
    vsnprintf(buf, sizeof(buf), fmt, ap);
  }
  return lumx_host::Emit(prio, tag, buf);
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int ret = __android_log_vprint(prio, tag, fmt, ap);
  va_end(ap);
  return ret;
}

void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
  char buf[lumx_host::kMaxMessage + 1];
  if (fmt != nullptr) {
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
  } else if (cond != nullptr) {
    snprintf(buf, sizeof(buf), "Assertion failed: %s", cond);
  } else {
    snprintf(buf, sizeof(buf), "Unspecified assertion failed");
  }
  lumx_host::Emit(ANDROID_LOG_FATAL, tag, buf);
  abort();
}

}  // extern "C"
