#include "host/acquire/intervals.h"

#include <algorithm>
#include <cmath>

namespace host {
namespace {

constexpr double kFirstUs = 10;
constexpr double kStep = 1.01;

constexpr double kGap = 1.5;  // periods

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

std::optional<std::uint64_t> interval_tracker::arrived(std::uint64_t nowUs) {
  std::optional<std::uint64_t> interval;
  if (lastUs_) {
    interval = nowUs - *lastUs_;
    histogram_.add(*interval);
    judge(static_cast<double>(*interval) / periodUs_);
  }
  lastUs_ = nowUs;
  return interval;
}

void interval_tracker::judge(double periods) {
  if (left_ == 0) {
    if (periods <= kGap) {
      return;
    }
    left_ = kRush;
  }
  periodsLate_ = std::max(0.0, periodsLate_ + periods - 1);
  leastLate_ = std::min(leastLate_, periodsLate_);
  if (--left_ == 0) {
    settle(leastLate_);
  }
}

// What is late beyond that became so only now, and may still be made up for.
void interval_tracker::settle(double sure) {
  const auto missed = std::llround(sure);
  missed_ += static_cast<std::uint64_t>(missed);
  periodsLate_ -= static_cast<double>(missed);
  leastLate_ = kNever;
  left_ = kRush;
  if (periodsLate_ < kGap - 1) {
    periodsLate_ = 0;
    left_ = 0;
  }
}

void interval_tracker::interrupt() {
  settle(periodsLate_);
  lastUs_.reset();
}

}  // namespace host
