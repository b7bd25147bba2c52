#include "tools/lumx-dspsim/latency_histogram.h"

#include <cmath>

namespace lumx::dspsim {

size_t LatencyHistogram::BucketOf(uint64_t value) {
  if (value < kExact) return static_cast<size_t>(value);
  unsigned e = 63u - static_cast<unsigned>(__builtin_clzll(value));  // 7..63
  unsigned shift = e - 6;
  uint64_t top = value >> shift;  // 64..127
  return kExact + (e - 7) * kSubBuckets + static_cast<size_t>(top - kSubBuckets);
}

uint64_t LatencyHistogram::BucketLower(size_t bucket) {
  if (bucket < kExact) return bucket;
  size_t k = bucket - kExact;
  unsigned e = 7 + static_cast<unsigned>(k / kSubBuckets);
  uint64_t top = kSubBuckets + k % kSubBuckets;
  return top << (e - 6);
}

uint64_t LatencyHistogram::BucketUpper(size_t bucket) {
  if (bucket < kExact) return bucket;
  size_t k = bucket - kExact;
  unsigned e = 7 + static_cast<unsigned>(k / kSubBuckets);
  uint64_t top = kSubBuckets + k % kSubBuckets;
  unsigned shift = e - 6;
  if (top + 1 == 2 * kSubBuckets && e == 63) return UINT64_MAX;
  return ((top + 1) << shift) - 1;
}

void LatencyHistogram::Add(uint64_t value) {
  ++counts_[BucketOf(value)];
  ++count_;
  if (value > max_) max_ = value;
  if (value < min_) min_ = value;
}

uint64_t LatencyHistogram::Quantile(double q) const {
  if (count_ == 0) return 0;
  if (q <= 0) return min_;
  if (q >= 1) return max_;
  uint64_t rank = static_cast<uint64_t>(std::ceil(q * static_cast<double>(count_)));
  if (rank == 0) rank = 1;
  uint64_t seen = 0;
  for (size_t b = 0; b < kBuckets; ++b) {
    seen += counts_[b];
    if (seen >= rank) {
      uint64_t v = BucketLower(b);
      if (v < min_) v = min_;
      return v < max_ ? v : max_;
    }
  }
  return max_;
}

}  // namespace lumx::dspsim
