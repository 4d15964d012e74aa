// When frames are due on a machine that is held up.
#include "platform/gvcam/pacer.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

using namespace std::chrono_literals;
using gvcam::pacer;
using testing::ElementsAre;

// When each of the frames begins, where the machine stands still from one time to another.
std::vector<pacer::time> begun(int frames, pacer::time heldUpFrom, pacer::time heldUpTo) {
  pacer pace(0ms);
  std::vector<pacer::time> times;
  for (int frame = 0; frame < frames; ++frame) {
    const bool isHeldUp = pace.next() >= heldUpFrom && pace.next() < heldUpTo;
    times.push_back(isHeldUp ? heldUpTo : pace.next());
    pace.sent(times.back(), times.back() + 1ms, 100ms);
  }
  return times;
}

TEST(pacer, frames_are_due_at_even_intervals_however_long_they_take) {
  EXPECT_THAT(begun(4, 0ms, 0ms), ElementsAre(0ms, 100ms, 200ms, 300ms));
}

TEST(pacer, late_frames_come_at_twice_the_rate_and_none_is_left_out) {
  EXPECT_THAT(begun(9, 100ms, 380ms),
              ElementsAre(0ms, 380ms, 430ms, 480ms, 530ms, 580ms, 630ms, 700ms, 800ms));
}

TEST(pacer, what_is_later_than_half_a_second_is_left_out) {
  EXPECT_THAT(begun(4, 100ms, 5000ms), ElementsAre(0ms, 5000ms, 5101ms, 5201ms));
}

}  // namespace
