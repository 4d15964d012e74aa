// When frames are due on a machine that is held up, and how far apart packets are sent.
#include <gmock/gmock.h>

#include <vector>

#include "platform/gvcam/frame_pacer.h"
#include "platform/gvcam/packet_spacing.h"

namespace {

using namespace std::chrono_literals;
using gvcam::frame_pacer;
using gvcam::packet_spacing;
using testing::ElementsAre;

// The times at which frames begin, where the machine stands still from one time to another.
std::vector<frame_pacer::time> begun(int frames, frame_pacer::time heldUpFrom, frame_pacer::time heldUpTo) {
  frame_pacer pace(0ms);
  std::vector<frame_pacer::time> times;
  for (int frame = 0; frame < frames; ++frame) {
    const bool isHeldUp = pace.next() >= heldUpFrom && pace.next() < heldUpTo;
    times.push_back(isHeldUp ? heldUpTo : pace.next());
    pace.sent(times.back(), times.back() + 1ms, 100ms);
  }
  return times;
}

TEST(frame_pacer, late_frames_follow_at_twice_the_rate_unless_they_are_half_a_second_late) {
  EXPECT_THAT(begun(4, 0ms, 0ms), ElementsAre(0ms, 100ms, 200ms, 300ms));
  EXPECT_THAT(begun(9, 100ms, 380ms),
              ElementsAre(0ms, 380ms, 430ms, 480ms, 530ms, 580ms, 630ms, 700ms, 800ms));
  EXPECT_THAT(begun(4, 100ms, 5000ms), ElementsAre(0ms, 5000ms, 5101ms, 5201ms));
}

TEST(packet_spacing, is_the_time_of_a_packet_on_the_link_and_the_delay_that_the_client_asks_for) {
  const struct {
    packet_spacing spacing;
    std::chrono::nanoseconds interval;  // of packets of 1500 bytes, with a delay of 5 us
    std::size_t atOnce;
  } cases[] = {{{}, 0ns, 64},
               {{.keepsPacketDelay = true}, 5us, 20},
               {{.linkSpeed = 1000}, 12'304ns, 8},
               {{.keepsPacketDelay = true, .linkSpeed = 1}, 12'309us, 1}};
  for (const auto& each : cases) {
    EXPECT_EQ(each.spacing.interval(1500, 5us), each.interval);
    EXPECT_EQ(packet_spacing::packets_at_once(each.interval), each.atOnce) << each.interval.count();
  }
}

}  // namespace
