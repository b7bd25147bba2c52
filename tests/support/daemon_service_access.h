// Test access to LumxService internals (the service befriends this struct),
// synthetic inotify events and a processor that records what it is handed.
#pragma once

#include <sys/inotify.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "processors/lumx_processor.h"
#include "service/lumx_service.h"
#include "support/system_service_env.h"

struct LumxServiceTestAccess {
  static std::shared_ptr<LumxService> Make() { return ::ndk::SharedRefBase::make<LumxService>(); }
  static lumx::Mutex& Mutex(LumxService& s) { return s.mutex_; }
  // The service takes ownership, as NewProcessor does.
  static void AddProcessor(LumxService& s, uint32_t id, LumxProcessor* p) {
    lumx::MutexLock lock(&s.mutex_);
    s.processors_[id] = p;
  }
  static void UpdateWakeLock(LumxService& s, CommandResult* result) {
    lumx::MutexLock lock(&s.mutex_);
    s.updateWakeLock(result);
  }
  static void SprintTapInfo(LumxService& s, const LumxTapDetailedInfo& info, std::string& out) {
    lumx::MutexLock lock(&s.mutex_);
    s.sprintTapInfo(info, out);
  }
  static bool RescanHeld(LumxService& s) {
    lumx::MutexLock lock(&s.mutex_);
    return s.bufferInitThread_.joinable();
  }
};

namespace lumx_test {

// One inotify event with its name, laid out as the kernel delivers it (the
// name padded with zeros to a multiple of 16 bytes).
class SyntheticEvent {
 public:
  SyntheticEvent(uint32_t mask, const std::string& name) {
    memset(buffer_, 0, sizeof(buffer_));
    inotify_event* e = get();
    e->wd = 1;
    e->mask = mask;
    const size_t n = std::min(name.size(), sizeof(buffer_) - sizeof(inotify_event) - 16);
    e->len = name.empty() ? 0 : static_cast<uint32_t>((n + 1 + 15) / 16 * 16);
    memcpy(e->name, name.data(), n);
  }
  inotify_event* get() { return reinterpret_cast<inotify_event*>(buffer_); }

 private:
  alignas(inotify_event) char buffer_[sizeof(inotify_event) + 272];
};

// A processor that only records the events handed to it.
class RecordingProcessor : public LumxProcessor {
 public:
  explicit RecordingProcessor(uint32_t id) : LumxProcessor(id, kProcessorTypePass) {}
  int Enable(bool enable) override {
    enabled_ = enable;
    return 0;
  }
  bool IsEnabled() const override { return enabled_; }
  void HandleInotifyEvent(const inotify_event* event) override {
    std::lock_guard<std::mutex> lock(mu_);
    events_.emplace_back(event->mask, event->len > 0 ? std::string(event->name) : std::string());
  }
  std::vector<std::pair<uint32_t, std::string>> events() {
    std::lock_guard<std::mutex> lock(mu_);
    return events_;
  }

 private:
  std::mutex mu_;
  std::vector<std::pair<uint32_t, std::string>> events_;
};

constexpr uint32_t FourCc(const char (&s)[5]) { return ::lumx::test::Code(s); }

}  // namespace lumx_test
