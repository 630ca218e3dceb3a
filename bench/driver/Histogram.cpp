#include "driver/Histogram.h"

#include <cmath>

namespace sorvane::bench {

void Histogram::add(const Histogram& other) {
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
    counts_[bucket] += other.counts_[bucket];
  }
  total_ += other.total_;
}

double Histogram::upperEnd(std::size_t bucket) {
  if (bucket < kSteps) {
    return static_cast<double>(bucket);
  }
  // Above the first buckets, a power of two begins at every multiple of kSteps.
  const std::size_t shift = bucket / kSteps - 1;
  const std::size_t step = bucket % kSteps + kSteps;
  return std::ldexp(static_cast<double>(step + 1), static_cast<int>(shift)) - 1;
}

double Histogram::quantile(double share) const {
  const double wanted = share * static_cast<double>(total_);
  std::uint64_t seen = 0;
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
    seen += counts_[bucket];
    if (seen > 0 && static_cast<double>(seen) >= wanted) {
      return upperEnd(bucket) / 1000.0;
    }
  }
  return 0.0;
}

}  // namespace sorvane::bench
