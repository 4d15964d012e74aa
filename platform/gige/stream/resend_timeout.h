// How long to wait for a packet that was asked for again.
#ifndef PLATFORM_GIGE_STREAM_RESEND_TIMEOUT_H
#define PLATFORM_GIGE_STREAM_RESEND_TIMEOUT_H

#include <algorithm>
#include <chrono>

namespace gige {

// Learnt from the answers as TCP learns its retransmission time-out (RFC 6298): their mean plus four times
// their mean deviation, doubled as long as none comes. A stream that waits for the longest time each time can
// ask only once before the frame after the next begins.
class resend_timeout {
 public:
  using duration = std::chrono::nanoseconds;
  // What every wait takes at least: packets that were merely overtaken come within this time.
  static constexpr duration shortest = std::chrono::milliseconds(1);

  // Waits the longest time until something is learnt. Less than `shortest` counts as that.
  explicit resend_timeout(duration longest) : longest_(std::max(longest, shortest)), value_(longest_) {}

  duration value() const { return value_; }
  duration longest() const { return longest_; }

  // A packet came so long after it was asked for, once.
  void answered(duration after);
  // A packet did not come in time.
  void unanswered() { value_ = std::min(value_ * 2, longest_); }

 private:
  duration longest_;
  duration value_;
  duration mean_{};
  duration deviation_{};
};

}  // namespace gige

#endif
