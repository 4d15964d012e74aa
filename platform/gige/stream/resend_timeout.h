// How long to wait for a packet that was requested again.
#ifndef PLATFORM_GIGE_STREAM_RESEND_TIMEOUT_H
#define PLATFORM_GIGE_STREAM_RESEND_TIMEOUT_H

#include <algorithm>
#include <chrono>

namespace gige {

// Follows the answers as TCP's retransmission time-out does (RFC 6298): the mean of their times plus four
// times the mean deviation, doubled whenever an answer does not arrive. With the longest time-out alone,
// there would be time for one request only before the frame after the next begins, which ends a frame.
class resend_timeout {
 public:
  using duration = std::chrono::nanoseconds;
  // Packets that were merely overtaken arrive within this time.
  static constexpr duration shortest = std::chrono::milliseconds(1);

  // The time-out is `longest` until the first answer. A `longest` below `shortest` counts as `shortest`.
  explicit resend_timeout(duration longest) : longest_(std::max(longest, shortest)), value_(longest_) {}

  duration value() const { return value_; }
  duration longest() const { return longest_; }

  // A packet that was requested once has arrived this long after the request.
  void answered(duration after);
  // A requested packet has not arrived in time.
  void unanswered() { value_ = std::min(value_ * 2, longest_); }

 private:
  duration longest_;
  duration value_;
  duration mean_{};
  duration deviation_{};
};

}  // namespace gige

#endif
