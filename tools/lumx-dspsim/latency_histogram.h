// Bounded-memory latency distribution: exact below 128 us, then 64 buckets
// per power of two (relative error under 1.6 %), plus the exact maximum.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace lumx::dspsim {

class LatencyHistogram {
 public:
  static constexpr size_t kExact = 128;
  static constexpr size_t kSubBuckets = 64;
  static constexpr size_t kBuckets = kExact + (64 - 7) * kSubBuckets;

  void Add(uint64_t value);
  uint64_t count() const { return count_; }
  uint64_t max() const { return max_; }
  uint64_t min() const { return count_ == 0 ? 0 : min_; }
  // The value at quantile q (0..1): the lower end of the bucket holding the
  // ceil(q x count)-th smallest value (exact below 128, else at most 1.6 %
  // low), kept within [min, max]. 0 when empty.
  uint64_t Quantile(double q) const;

  static size_t BucketOf(uint64_t value);
  static uint64_t BucketLower(size_t bucket);
  static uint64_t BucketUpper(size_t bucket);

 private:
  std::array<uint32_t, kBuckets> counts_{};
  uint64_t count_ = 0;
  uint64_t max_ = 0;
  uint64_t min_ = UINT64_MAX;
};

}  // namespace lumx::dspsim
