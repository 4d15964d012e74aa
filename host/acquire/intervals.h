// What the arrival times of frames tell: how evenly they come, and how many never came.
#ifndef HOST_ACQUIRE_INTERVALS_H
#define HOST_ACQUIRE_INTERVALS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

namespace host {

/// Counts intervals from 10 us to about 100 s in steps of 1 percent; what lies outside goes to the ends.
class interval_histogram {
 public:
  void add(std::uint64_t us);

  std::uint64_t count() const { return count_; }
  std::uint64_t sum_us() const { return sumUs_; }
  std::uint64_t max_us() const { return maxUs_; }
  /// The interval that this part (0 to 1) of all of them does not exceed, within 1 percent and never above
  /// the longest; 0 without any.
  std::uint64_t quantile_us(double part) const;

 private:
  std::array<std::uint64_t, 1621> buckets_{};
  std::uint64_t count_ = 0;
  std::uint64_t sumUs_ = 0;
  std::uint64_t maxUs_ = 0;
};

/// Judges the arrival times of one camera against its frame period. A frame is missed when an interval is
/// longer than one and a half periods. A host that was held up gets the buffered frames in a rush: a gap is
/// counted, as far as they did not make up for it, once `kRush` frames have come.
class interval_tracker {
 public:
  /// Frames; more than a host buffers, as a rush can be held up, too.
  static constexpr int kRush = 20;

  explicit interval_tracker(double periodUs) : periodUs_(periodUs) {}

  /// A frame arrived; times of any clock that does not go backwards. Gives the interval before it; none for
  /// the first frame of a run.
  std::optional<std::uint64_t> arrived(std::uint64_t nowUs);
  /// The run ended: the time until the next frame is no interval.
  void interrupt();
  /// From now on frames are expected so often, microseconds.
  void set_period(double periodUs) { periodUs_ = periodUs; }

  const interval_histogram& histogram() const { return histogram_; }
  /// Only ever grows, for a gap `kRush` frames later, or twice as many where gaps do not end.
  std::uint64_t missed() const { return missed_; }
  /// The next `kRush` frames tell whether more were missed.
  bool is_in_doubt() const { return left_ > 0; }

 private:
  static constexpr double kNever = std::numeric_limits<double>::infinity();

  void judge(double periods);
  void settle(double sure);

  double periodUs_;
  std::optional<std::uint64_t> lastUs_;
  std::uint64_t missed_ = 0;
  double periodsLate_ = 0;     // behind the frames that were due, since a gap
  double leastLate_ = kNever;  // since it may be made up for
  int left_ = 0;               // frames that may still make up for it; 0 when none is late
  interval_histogram histogram_;
};

}  // namespace host

#endif
