#include "platform/gige/stream/nap_planner.h"

#include <algorithm>
#include <cmath>

namespace gige {
namespace {

constexpr double microsecond = 1000;

// A shorter nap costs more than the wake-ups that it saves.
constexpr double shortestNap = 40 * microsecond;
constexpr double napBeforeResends = 1000 * microsecond;
constexpr double mostFill = 0.5;

// A nap ends this long after the expected end of a frame. A frame that is later than that costs one more nap.
constexpr double leastSlack = 10 * microsecond;
constexpr double mostSlack = 200 * microsecond;

constexpr double newestWeight = 1.0 / 8;            // in a running mean
constexpr double mostRise = 1 + 1.0 / 64;           // of the packet interval, from frame to frame
constexpr std::uint32_t leastPacketsForCost = 8;    // reading fewer shows little of what one costs
constexpr std::uint32_t partForPacketInterval = 8;  // at least 1/8 of a frame shows its packet interval

// A frame is steady when it ends within 1/8 of the frame interval, and within 0.4 ms, of its expected end.
// Other frames show another frame rate, or a camera without one.
constexpr double steadyPart = 1.0 / 8;
constexpr double steadyTime = 400 * microsecond;

constexpr nap_planner::plan waitForPacket{true, {}};

double count_of(nap_planner::nanoseconds time) {
  return static_cast<double>(time.count());
}

double running_mean(double before, double newest) {
  return before == 0 ? newest : before + (newest - before) * newestWeight;
}

}  // namespace

nap_planner::plan nap_planner::next(const observation& seen) {
  learn(seen);
  const bool inProgress = seen.missing > 0;
  const bool readNothing = inProgress && seen.packets == 0;
  const bool unknown = packetInterval_ == 0 || (!inProgress && (!steady_ || seen.awaiting));
  if (readNothing || unknown) {
    return waitForPacket;
  }
  const double end = inProgress ? newest_ + seen.missing * packetInterval_ : next_frame_end();
  const double slack = inProgress ? packetInterval_ : std::clamp(jitter_, leastSlack, mostSlack);
  const double wait = end - count_of(seen.now);
  const bool overdue = !inProgress && wait + slack < 0;
  if (overdue) {
    return waitForPacket;
  }
  // Reading a whole frame takes part of the time in which it arrives. Reading begins early enough to be done
  // when the last packet arrives.
  const double lead = std::min(packetsPerFrame_ * packetCost_, packetsPerFrame_ * packetInterval_ / 2);
  const double sleep = std::min(wait > 2 * lead ? wait - lead : wait + slack, longest_nap(seen));
  const bool bufferIsTooSmall = sleep < shortestNap && sleep < wait;
  if (bufferIsTooSmall) {
    return waitForPacket;
  }
  return {false, nanoseconds(std::llround(std::max(sleep, shortestNap)))};
}

// Until the buffer is filled as far as a nap may fill it. Until packets that were requested again may have
// arrived.
double nap_planner::longest_nap(const observation& seen) const {
  if (seen.awaiting) {
    return napBeforeResends;
  }
  const double frameDuration = packetsPerFrame_ * packetInterval_;
  const double untilFull = packetFill_ == 0 ? frameDuration : mostFill / packetFill_ * packetInterval_;
  if (seen.missing > 0) {
    return untilFull;
  }
  const double untilFrame = std::max(next_frame_end() - frameDuration - count_of(seen.now), 0.0);
  return untilFrame + untilFull;
}

void nap_planner::learn(const observation& seen) {
  if (seen.packets == 0) {
    return;
  }
  const double newest = count_of(seen.newest);
  const double packets = seen.packets;
  if (seen.packets >= leastPacketsForCost) {
    packetCost_ = running_mean(packetCost_, count_of(seen.now - seen.woke) / packets);
  }
  // Packets that arrive while others are read make this too small, never too large.
  packetFill_ = std::max(packetFill_, seen.fill / packets);
  learn_packet_interval(seen, newest);
  if (seen.frameEnded) {
    learn_frame_interval(newest);
  }
  newest_ = newest;
}

// Measures from the first observation of a frame to its end. A large enough part of the frame must arrive in
// between: the few packets that follow a hold-up of the sender arrive at no regular interval.
void nap_planner::learn_packet_interval(const observation& seen, double newest) {
  const std::uint32_t arrived = first_.missing - std::min(seen.missing, first_.missing);
  first_.packets += seen.packets;
  const bool isSameFrame = first_.missing != 0 && first_.packets == arrived;
  if (!isSameFrame || seen.awaiting) {
    first_ = {seen.missing, newest, 0};
    return;
  }
  if (!seen.frameEnded) {
    return;
  }
  if (arrived > packetsPerFrame_ / partForPacketInterval) {
    // A frame that is expected too late is delivered late. A frame that is expected too early costs one nap.
    // So the interval falls at once and rises slowly: one frame whose sender was held up does not raise it by
    // much.
    const double interval = (newest - first_.newest) / arrived;
    packetInterval_ = packetInterval_ == 0 ? interval : std::min(interval, packetInterval_ * mostRise);
  }
  first_.missing = 0;
}

void nap_planner::learn_frame_interval(double end) {
  double interval = end - lastEnd_;
  const bool isFirst = lastEnd_ == 0;
  lastEnd_ = end;
  if (isFirst) {
    expectedEnd_ = end;
    return;
  }
  // One gap of two intervals is a lost frame. Two such gaps in a row are half the frame rate.
  const double frames = frameInterval_ == 0 ? 1 : std::max(1.0, std::round(interval / frameInterval_));
  if (frames == 1 || !skipped_) {
    interval /= frames;
  }
  skipped_ = frames > 1;
  const double late = end - (expectedEnd_ + frames * frameInterval_);
  const bool wasSteady = steady_;
  steady_ = frameInterval_ != 0 && std::abs(late) < std::min(frameInterval_ * steadyPart, steadyTime);
  // A frame that was held up on its way does not delay the next one. So a late frame hardly moves what is
  // expected: with an interval of 10 ms, frames that end at 0, 10.4 and 20.0 ms let the next be expected
  // near 30.0 ms, not 30.4.
  expectedEnd_ = late > 0 && (steady_ || wasSteady) ? end - late * (1 - newestWeight) : end;
  if (steady_) {
    jitter_ = running_mean(jitter_, std::abs(late));
    frameInterval_ = running_mean(frameInterval_, interval);
  } else if (!wasSteady) {
    frameInterval_ = interval;
  }
}

}  // namespace gige
