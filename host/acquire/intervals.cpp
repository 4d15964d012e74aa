#include "host/acquire/intervals.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace host {
namespace {

constexpr double kFirstUs = 10;
constexpr double kStep = 1.01;

std::size_t bucket_of(std::uint64_t us, std::size_t count) {
  const double steps = std::log(std::max(static_cast<double>(us), kFirstUs) / kFirstUs) / std::log(kStep);
  return std::min(static_cast<std::size_t>(std::ceil(steps)), count - 1);
}

}  // namespace

void interval_histogram::add(std::uint64_t us) {
  ++buckets_[bucket_of(us, buckets_.size())];
  ++count_;
  sumUs_ += us;
  maxUs_ = std::max(maxUs_, us);
}

std::uint64_t interval_histogram::count_up_to(std::uint64_t us) const {
  const auto end = buckets_.begin() + static_cast<std::ptrdiff_t>(bucket_of(us, buckets_.size())) + 1;
  return us >= maxUs_ ? count_ : std::accumulate(buckets_.begin(), end, std::uint64_t{0});
}

std::uint64_t interval_histogram::quantile_us(double part) const {
  const auto wanted = static_cast<std::uint64_t>(std::ceil(part * static_cast<double>(count_)));
  std::uint64_t seen = 0;
  for (std::size_t at = 0; at < buckets_.size(); ++at) {
    seen += buckets_[at];
    if (seen >= wanted && seen > 0) {
      const double upper = kFirstUs * std::pow(kStep, static_cast<double>(at));
      return at + 1 == buckets_.size() ? maxUs_
                                       : std::min(maxUs_, static_cast<std::uint64_t>(std::llround(upper)));
    }
  }
  return 0;
}

}  // namespace host
