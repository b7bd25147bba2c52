// The log capture hook of the device build of the tests (lumxd_tests): a
// liblog logger (API 30) that records every message for the live captures
// and hands it on to logd unless a capture turned the echo off. liblog
// applies its priority filter before a logger sees a message, as the host
// runtime does before it records one.
#include <lumx_host/log_capture.h>

#include <android/log.h>

#include <string.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace lumx_host {

struct LogCapture::State {
  std::mutex mu;
  std::vector<LogEntry> entries;
  bool echo = true;
};

namespace {

// liblog formats into 1024 bytes with the terminator.
constexpr size_t kMaxMessage = 1023;

// The live captures. Leaked on purpose so logging from threads that outlive
// static destruction stays safe.
struct Registry {
  std::mutex mu;
  std::vector<std::shared_ptr<LogCapture::State>> captures;
  bool installed = false;
};

Registry& registry() {
  static Registry* r = new Registry();
  return *r;
}

void CaptureLogger(const struct __android_log_message* m) {
  const char* tag = m->tag != nullptr ? m->tag : "";
  const char* msg = m->message != nullptr ? m->message : "(null)";
  std::string text(msg, strnlen(msg, kMaxMessage));
  bool echo = true;
  {
    Registry& r = registry();
    std::lock_guard<std::mutex> l(r.mu);
    for (auto& st : r.captures) {
      std::lock_guard<std::mutex> sl(st->mu);
      st->entries.push_back(LogEntry{m->priority, tag, text});
      if (!st->echo) echo = false;
    }
  }
  if (echo) __android_log_logd_logger(m);
}

}  // namespace

LogCapture::LogCapture() : state_(std::make_shared<State>()) {
  Registry& r = registry();
  std::lock_guard<std::mutex> l(r.mu);
  // Installed once and kept: with no capture alive it only forwards to logd.
  if (!r.installed) {
    __android_log_set_logger(CaptureLogger);
    r.installed = true;
  }
  r.captures.push_back(state_);
}

LogCapture::~LogCapture() {
  Registry& r = registry();
  std::lock_guard<std::mutex> l(r.mu);
  r.captures.erase(std::remove(r.captures.begin(), r.captures.end(), state_), r.captures.end());
}

std::vector<LogEntry> LogCapture::entries() const {
  std::lock_guard<std::mutex> l(state_->mu);
  return state_->entries;
}

std::vector<std::string> LogCapture::messages() const {
  std::vector<std::string> out;
  std::lock_guard<std::mutex> l(state_->mu);
  for (const auto& e : state_->entries) out.push_back(e.message);
  return out;
}

std::vector<std::string> LogCapture::messages(const std::string& tag) const {
  std::vector<std::string> out;
  std::lock_guard<std::mutex> l(state_->mu);
  for (const auto& e : state_->entries) {
    if (e.tag == tag) out.push_back(e.message);
  }
  return out;
}

size_t LogCapture::count(const std::string& needle) const {
  size_t n = 0;
  std::lock_guard<std::mutex> l(state_->mu);
  for (const auto& e : state_->entries) {
    if (e.message.find(needle) != std::string::npos) ++n;
  }
  return n;
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> l(state_->mu);
  state_->entries.clear();
}

void LogCapture::setEcho(bool echo) {
  std::lock_guard<std::mutex> l(state_->mu);
  state_->echo = echo;
}

}  // namespace lumx_host
