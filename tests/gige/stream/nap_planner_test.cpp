// When a UDP receiver naps, tried on a camera, a socket and a clock that are all made up.
#include "platform/gige/stream/nap_planner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using gige::nap_planner;
using std::chrono::nanoseconds;

/// A camera's frames, and what it costs to receive them.
struct stream {
  const char* name;
  std::uint32_t packets;            // of a frame
  nanoseconds frameDistance;        // from begin to begin
  nanoseconds packetDistance;       // within a frame
  nanoseconds packetCost;           // of taking one
  std::uint32_t bufferPackets;      // room of the socket
  nanoseconds jitter = 30us;        // of a frame's begin, either way
  double mostWakes = 3;             // a frame
  nanoseconds medianDelay = 200us;  // from last packet to delivery
  nanoseconds worstDelay = 1ms;     // of 99 in 100
  nanoseconds heldUp = 0ms;         // the sender, within one frame of 200
};

void PrintTo(const stream& of, std::ostream* to) {
  *to << of.name;
}

/// What became of the frames.
struct outcome {
  std::uint64_t wakes = 0;
  std::uint64_t drops = 0;
  std::vector<nanoseconds> delays;

  nanoseconds delay(double share) {
    const auto place =
        delays.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(delays.size()));
    std::nth_element(delays.begin(), place, delays.end());
    return *place;
  }
};

/// Receives so many frames, of which the first tenth is for learning, and counts the others.
class receiver {
 public:
  explicit receiver(const stream& from) : from_(from), planner_(from.packets) {}

  outcome receive(std::uint32_t frames) {
    std::mt19937 random(1);
    std::uniform_int_distribution<std::int64_t> jitter(-from_.jitter.count(), from_.jitter.count());
    nanoseconds before{};
    for (std::uint32_t frame = 0; frame < frames; ++frame) {
      const nanoseconds begin = 1s + frame * from_.frameDistance + nanoseconds(jitter(random));
      before = std::max(before, begin);
      for (std::uint32_t packet = 0; packet < from_.packets; ++packet) {
        const bool isHeldUp = packet == from_.packets / 8 && frame % 200 == 100;
        before += isHeldUp ? from_.heldUp : 0ms;
        arrivals_.push_back(before += from_.packetDistance);
      }
    }
    while (next_ < arrivals_.size()) {
      look();
    }
    return result_;
  }

 private:
  bool has_come(std::size_t packet) const { return packet < arrivals_.size() && arrivals_[packet] <= now_; }

  /// Packets that find the buffer full are lost; the model's frames go on without them.
  std::uint32_t waiting() {
    std::uint32_t count = 0;
    while (has_come(next_ + count)) {
      ++count;
    }
    result_.drops += count > from_.bufferPackets ? count - from_.bufferPackets : 0;
    return count;
  }

  void look() {
    nap_planner::observation seen{.woke = now_};
    seen.fill = std::min(1.0, static_cast<double>(waiting()) / from_.bufferPackets);
    for (; has_come(next_); ++next_) {
      now_ += from_.packetCost;
      ++seen.packets;
      seen.newest = arrivals_[next_];
      if ((next_ + 1) % from_.packets == 0 && next_ / from_.packets >= learning) {
        result_.delays.push_back(now_ - arrivals_[next_]);
      }
    }
    const auto ofFrame = static_cast<std::uint32_t>(next_ % from_.packets);
    seen.missing = ofFrame == 0 ? 0 : from_.packets - ofFrame;
    seen.frameEnded = seen.packets > 0 && ofFrame == 0;
    seen.now = now_;
    const nap_planner::plan plan = planner_.next(seen);
    constexpr nanoseconds wakeUp = 8us;
    const nanoseconds packet = next_ < arrivals_.size() ? arrivals_[next_] : now_;
    now_ = wakeUp + (plan.untilPacket ? std::max(now_, packet) : now_ + plan.sleep);
    result_.wakes += next_ / from_.packets >= learning ? 1 : 0;
  }

  static constexpr std::size_t learning = 20;  // frames

  const stream from_;
  nap_planner planner_;
  std::vector<nanoseconds> arrivals_;
  std::size_t next_ = 0;
  nanoseconds now_ = 1s;
  outcome result_;
};

class nap_planning : public testing::TestWithParam<stream> {};

TEST_P(nap_planning, delivers_in_time_with_few_wake_ups_and_a_buffer_that_never_overflows) {
  constexpr std::uint32_t frames = 1000;
  outcome result = receiver(GetParam()).receive(frames);
  const double wakes = static_cast<double>(result.wakes) / frames;
  RecordProperty("wakes", std::to_string(wakes));
  EXPECT_LE(wakes, GetParam().mostWakes);
  EXPECT_LE(result.delay(0.5), GetParam().medianDelay);
  EXPECT_LE(result.delay(0.99), GetParam().worstDelay);
  EXPECT_EQ(result.drops, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    streams, nap_planning,
    testing::Values(stream{"in_one_burst", 148, 10ms, 2us, 1us, 4000},
                    stream{"spread_over_the_period", 148, 10ms, 60us, 1us, 4000},
                    stream{"small_packets", 900, 10ms, 1us, 400ns, 4000},
                    stream{"one_frame_behind_the_other", 148, 1ms, 6us, 2us, 1000},
                    stream{"unsteady", 148, 200ms, 10us, 1us, 4000, 5ms},
                    stream{"held_up_now_and_then", 148, 10ms, 2us, 500ns, 4000, 30us, 3, 200us, 1ms, 100ms},
                    stream{"small_frames", 3, 200us, 5us, 2us, 4000, 10us},
                    stream{"a_buffer_of_a_third_of_a_frame", 148, 10ms, 30us, 1us, 50, 30us, 14}),
    [](const auto& of) { return of.param.name; });

}  // namespace
