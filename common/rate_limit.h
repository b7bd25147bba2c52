// LogRateLimiter: at most one log line per interval for one cause, and a
// count of the lines it held back.
//
// A fault that repeats (a device that keeps failing, a DSP that keeps
// answering with junk) must not flood the log or spend a core on logging.
// Each cause that a fault can repeat owns one limiter (usually a static or a
// member); the first occurrence is logged at once, later ones at most once
// per interval, followed by a line that says how many were held back.
//
// Threads: any, including the real-time I/O threads: no lock, no allocation,
// only relaxed atomics and the monotonic clock.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/clock.h"
#include "common/lumx_log.h"

namespace lumx {

class LogRateLimiter {
 public:
  static constexpr int64_t kDefaultIntervalNs = 1000000000;  // one second

  constexpr LogRateLimiter() : LogRateLimiter(kDefaultIntervalNs) {}
  explicit constexpr LogRateLimiter(int64_t intervalNs) : intervalNs_(intervalNs) {}

  LogRateLimiter(const LogRateLimiter&) = delete;
  LogRateLimiter& operator=(const LogRateLimiter&) = delete;

  // Counts one occurrence. Returns true when the caller should log it now;
  // `*heldBack` is then the number of occurrences since the previous line
  // that were not logged.
  bool Allow(uint64_t* heldBack) {
    pending_.fetch_add(1, std::memory_order_relaxed);
    const int64_t now = MonotonicNowNs();
    int64_t last = lastNs_.load(std::memory_order_relaxed);
    if (last != kNever && now - last < intervalNs_) return false;
    if (!lastNs_.compare_exchange_strong(last, now, std::memory_order_relaxed)) return false;
    // This occurrence is the one logged; the rest were held back.
    *heldBack = pending_.exchange(0, std::memory_order_relaxed) - 1;
    return true;
  }

  // As Allow(), but an occurrence whose `key` (the values its line shows)
  // differs from the previous occurrence's is logged at once: only repeats
  // of the same line are held back.
  bool AllowKeyed(uint64_t key, uint64_t* heldBack) {
    if (lastKey_.exchange(key, std::memory_order_relaxed) != key) {
      lastNs_.store(kNever, std::memory_order_relaxed);
    }
    return Allow(heldBack);
  }

  // Forgets the history: the next occurrence is logged at once.
  void Reset() {
    pending_.store(0, std::memory_order_relaxed);
    lastNs_.store(kNever, std::memory_order_relaxed);
  }

 private:
  static constexpr int64_t kNever = INT64_MIN;

  const int64_t intervalNs_;
  std::atomic<int64_t> lastNs_{kNever};
  std::atomic<uint64_t> pending_{0};
  std::atomic<uint64_t> lastKey_{0};
};

}  // namespace lumx

// Logs one line through `limiter` (a lumx::LogRateLimiter): the line itself,
// unchanged, and, when earlier occurrences were held back, one more line of
// the same priority naming `cause` and their number.
#define LUMX_LOG_LIMITED(prio, limiter, cause, ...) \
  LUMX_LOG_IF_ALLOWED_((limiter).Allow(&lumxHeldBack_), prio, cause, __VA_ARGS__)
// The same, where a line with other values (`key`) is never held back.
#define LUMX_LOG_LIMITED_KEYED(prio, limiter, key, cause, ...) \
  LUMX_LOG_IF_ALLOWED_((limiter).AllowKeyed((key), &lumxHeldBack_), prio, cause, __VA_ARGS__)

#define LUMX_LOG_IF_ALLOWED_(allow, prio, cause, ...)                                     \
  do {                                                                                    \
    uint64_t lumxHeldBack_ = 0;                                                           \
    if (allow) {                                                                          \
      __android_log_print((prio), LUMX_LOG_TAG, __VA_ARGS__);                             \
      if (lumxHeldBack_ != 0) {                                                           \
        __android_log_print((prio), LUMX_LOG_TAG, "%s: %llu more held back", (cause),     \
                            static_cast<unsigned long long>(lumxHeldBack_));              \
      }                                                                                   \
    }                                                                                     \
  } while (0)

#define LUMX_LOGE_LIMITED(limiter, cause, ...) LUMX_LOG_LIMITED(ANDROID_LOG_ERROR, limiter, cause, __VA_ARGS__)
#define LUMX_LOGW_LIMITED(limiter, cause, ...) LUMX_LOG_LIMITED(ANDROID_LOG_WARN, limiter, cause, __VA_ARGS__)
#define LUMX_LOGI_LIMITED(limiter, cause, ...) LUMX_LOG_LIMITED(ANDROID_LOG_INFO, limiter, cause, __VA_ARGS__)
#define LUMX_LOGE_LIMITED_KEYED(limiter, key, cause, ...) \
  LUMX_LOG_LIMITED_KEYED(ANDROID_LOG_ERROR, limiter, key, cause, __VA_ARGS__)
