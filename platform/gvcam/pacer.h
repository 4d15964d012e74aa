// When a camera's frames are due.
#ifndef PLATFORM_GVCAM_PACER_H
#define PLATFORM_GVCAM_PACER_H

#include <algorithm>
#include <chrono>

namespace gvcam {

// A sensor does not wait for its machine: frames are due at even intervals, and what there was no time for is
// sent late, at twice the rate, so that client and commands get their turn. Frames that are more than half a
// second late are left out.
class pacer {
 public:
  using time = std::chrono::nanoseconds;

  explicit pacer(time firstDue) : due_(firstDue), next_(firstDue) {}

  // When to begin the next frame.
  time next() const { return next_; }
  // The frame was begun at one time and sent at another; the following one is due an interval later.
  void sent(time begun, time now, time interval) {
    constexpr time mostLate = std::chrono::milliseconds(500);
    due_ = (now - due_ > mostLate ? now : due_) + interval;
    next_ = std::max(due_, begun + interval / 2);
  }

 private:
  time due_;
  time next_;
};

}  // namespace gvcam

#endif
