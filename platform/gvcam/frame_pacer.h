// When a camera's frames are due.
#ifndef PLATFORM_GVCAM_FRAME_PACER_H
#define PLATFORM_GVCAM_FRAME_PACER_H

#include <algorithm>
#include <chrono>

namespace gvcam {

// A sensor does not wait for its machine. Frames are due at even intervals. Frames that are late, because the
// machine was held up, follow at twice the rate, so that commands and the client get their turn. Frames that
// are more than half a second late are left out.
class frame_pacer {
 public:
  using time = std::chrono::nanoseconds;

  explicit frame_pacer(time firstDue) : due_(firstDue), next_(firstDue) {}

  // When to begin the next frame.
  time next() const { return next_; }
  // The frame was begun at `begun` and sent by `now`. The next one is due an interval after it was due.
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
