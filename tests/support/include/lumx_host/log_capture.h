// Test hook: in-process capture of the Android log calls.
//
//   lumx_host::LogCapture capture;      // collects while alive
//   __android_log_print(ANDROID_LOG_INFO, "lumx", "hello %d", 1);
//   auto e = capture.entries();         // {{ANDROID_LOG_INFO, "lumx", "hello 1"}}
//
// Every entry that passes the log's priority filter is recorded, with the
// message exactly as logged: after formatting and truncation to 1023 bytes,
// a trailing newline (as in "Start %s\n") kept as it was passed. Several
// captures may be alive at once; each sees the entries logged during its
// lifetime. Thread-safe. Entries are still written to the log (stderr on the
// host, logd on a device) unless setEcho(false) was called on a live capture.
//
// Two builds provide it: the host runtime's liblog (platform/host/log) and,
// on a device, tests/support/android/log_capture.cpp through liblog's logger
// hook. The header lives with the test support so that both builds export it
// without exporting the host's Android headers.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace lumx_host {

struct LogEntry {
  int priority = 0;
  std::string tag;
  std::string message;

  bool operator==(const LogEntry& o) const {
    return priority == o.priority && tag == o.tag && message == o.message;
  }
};

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // Snapshot of the entries recorded so far, in logging order.
  std::vector<LogEntry> entries() const;
  // Messages only, optionally restricted to one tag.
  std::vector<std::string> messages() const;
  std::vector<std::string> messages(const std::string& tag) const;
  // Number of entries whose message contains `needle`.
  size_t count(const std::string& needle) const;
  bool contains(const std::string& needle) const { return count(needle) > 0; }
  void clear();

  // While this capture lives and echo is off, lines are not written to stderr
  // (for tests that log a lot).
  void setEcho(bool echo);

  struct State;

 private:
  std::shared_ptr<State> state_;
};

// What the host logger writes to stderr for one message: each line of the
// message as "<head><P> <tag padded to 8>: <line>\n", where head is the time,
// pid and tid fields. A final newline ends the last line (no empty line
// follows it). Control bytes other than tab, DEL and the C1 controls
// (U+0080..U+009F) are written as \xHH, so that no byte of a message can
// start a line of its own or move a terminal's cursor. Exposed for the host
// log's tests; the device build does not define these two.
std::string FormatLogLines(const char* head, int priority, const char* tag, const char* message);
// The same without the head: the part after the time, pid and tid fields.
std::string FormatLogLineTail(int priority, const char* tag, const char* message);

}  // namespace lumx_host
