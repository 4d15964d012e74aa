// How evenly frames come.
#ifndef HOST_ACQUIRE_INTERVALS_H
#define HOST_ACQUIRE_INTERVALS_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace host {

/// Counts intervals from 10 us to about 100 s in steps of 1 percent; what lies outside goes to the ends.
class interval_histogram {
 public:
  void add(std::uint64_t us);

  std::uint64_t count() const { return count_; }
  std::uint64_t sum_us() const { return sumUs_; }
  std::uint64_t max_us() const { return maxUs_; }
  /// Intervals up to that long, within 1 percent.
  std::uint64_t count_up_to(std::uint64_t us) const;
  /// The interval that this part (0 to 1) of all of them does not exceed, within 1 percent and never above
  /// the longest; 0 without any.
  std::uint64_t quantile_us(double part) const;

 private:
  std::array<std::uint64_t, 1621> buckets_{};
  std::uint64_t count_ = 0;
  std::uint64_t sumUs_ = 0;
  std::uint64_t maxUs_ = 0;
};

}  // namespace host

#endif
