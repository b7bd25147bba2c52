// Counters that the packet path and the control path update and that the
// service's dump reads.
//
// Writers: any thread, including the real-time I/O threads. Every update is
// one relaxed atomic operation: no lock, no allocation, no system call.
// Readers (the dump, tests) see each value whole but not a consistent set;
// a dump is a snapshot of independent counters, nothing more.
//
// Building with -DLUMX_STATS=0 compiles every update out (the benchmarks
// measure what the counters cost); reads then see zeros.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#ifndef LUMX_STATS
#define LUMX_STATS 1
#endif

namespace lumx {

constexpr bool kStatsEnabled = LUMX_STATS != 0;

// A monotonically growing count (or a last-value gauge through Set).
class StatCounter {
 public:
  void Add(uint64_t n = 1) {
    if (kStatsEnabled) value_.fetch_add(n, std::memory_order_relaxed);
  }
  void Set(uint64_t v) {
    if (kStatsEnabled) value_.store(v, std::memory_order_relaxed);
  }
  // Raises the value to `v` if it is larger (a running maximum).
  void Max(uint64_t v) {
    if (!kStatsEnabled) return;
    uint64_t cur = value_.load(std::memory_order_relaxed);
    while (v > cur && !value_.compare_exchange_weak(cur, v, std::memory_order_relaxed)) {
    }
  }
  uint64_t Get() const { return value_.load(std::memory_order_relaxed); }
  void Reset() { value_.store(0, std::memory_order_relaxed); }

 private:
  std::atomic<uint64_t> value_{0};
};

// Durations in microseconds, in fixed power-of-two buckets: bucket 0 holds
// 0 µs, bucket k (k >= 1) holds [2^(k-1), 2^k) µs, the last bucket everything
// from 2^(kBuckets-2) µs up (about 1 s). Percentiles are read as the upper
// edge of the bucket they fall in, so they are exact to within a factor 2.
class StatHistogram {
 public:
  static constexpr size_t kBuckets = 22;

  void Record(uint64_t us) {
    if (!kStatsEnabled) return;
    buckets_[BucketOf(us)].fetch_add(1, std::memory_order_relaxed);
    max_.Max(us);
  }

  uint64_t Count() const {
    uint64_t n = 0;
    for (const auto& b : buckets_) n += b.load(std::memory_order_relaxed);
    return n;
  }
  uint64_t Max() const { return max_.Get(); }
  // The upper edge, in µs, of the bucket holding the p-th percentile
  // (0 < p <= 100), capped at the largest value seen; 0 when empty.
  uint64_t Percentile(double p) const {
    uint64_t counts[kBuckets];
    uint64_t total = 0;
    for (size_t i = 0; i < kBuckets; ++i) {
      counts[i] = buckets_[i].load(std::memory_order_relaxed);
      total += counts[i];
    }
    if (total == 0) return 0;
    const double want = p / 100.0 * static_cast<double>(total);
    uint64_t seen = 0;
    for (size_t i = 0; i < kBuckets; ++i) {
      seen += counts[i];
      if (static_cast<double>(seen) >= want && counts[i] != 0) {
        const uint64_t edge = UpperEdge(i);
        const uint64_t max = Max();
        return edge < max ? edge : max;
      }
    }
    return Max();
  }
  void Reset() {
    for (auto& b : buckets_) b.store(0, std::memory_order_relaxed);
    max_.Reset();
  }

  // The bit length of `us` (0 for 0), capped at the last bucket: one
  // instruction on the packet path rather than a loop.
  static size_t BucketOf(uint64_t us) {
    const size_t k = us == 0 ? 0 : static_cast<size_t>(64 - __builtin_clzll(us));
    return k < kBuckets ? k : kBuckets - 1;
  }
  // Largest value that falls in bucket `i` (the last bucket is open-ended).
  static uint64_t UpperEdge(size_t i) { return i == 0 ? 0 : (uint64_t{1} << i) - 1; }

 private:
  std::atomic<uint64_t> buckets_[kBuckets] = {};
  StatCounter max_;
};

// When something last went wrong: a code (an errno, a status) and the time on
// the monotonic clock, for "last error and its age".
class StatLastError {
 public:
  void Record(int64_t code, int64_t nowNs) {
    if (!kStatsEnabled) return;
    code_.store(code, std::memory_order_relaxed);
    atNs_.store(nowNs, std::memory_order_relaxed);
  }
  int64_t code() const { return code_.load(std::memory_order_relaxed); }
  // 0 when nothing went wrong since the last reset.
  int64_t atNs() const { return atNs_.load(std::memory_order_relaxed); }
  void Reset() {
    code_.store(0, std::memory_order_relaxed);
    atNs_.store(0, std::memory_order_relaxed);
  }

 private:
  std::atomic<int64_t> code_{0};
  std::atomic<int64_t> atNs_{0};
};

}  // namespace lumx
