#include "platform/gige/stream/nap_planner.h"

#include <algorithm>
#include <cmath>

namespace gige {
namespace {

constexpr double microsecond = 1000;

// A shorter nap costs more than to be woken by the packets that it would save.
constexpr double shortestNap = 40 * microsecond;
constexpr double mostFill = 0.5;

// Behind the moment when a frame is expected to end; frames that are late by more cost one more nap.
constexpr double leastSlack = 10 * microsecond;
constexpr double mostSlack = 200 * microsecond;

constexpr double lessonWeight = 1.0 / 8;  // of what was seen last
// A frame that deviates by more from when it was expected shows another rate, or a camera that has none. A
// nap of half a millisecond too long is late already.
constexpr double steadyShare = 1.0 / 8;  // of the frames' distance
constexpr double steadyTime = 400 * microsecond;
constexpr std::uint32_t fewPackets = 8;  // taking fewer says little of what one costs

constexpr nap_planner::plan nextPacket{true, {}};

double count_of(nap_planner::nanoseconds time) {
  return static_cast<double>(time.count());
}

// Weighs in what was seen; takes the first one as it is.
void weigh_in(double& mean, double seen) {
  mean = mean == 0 ? seen : mean + (seen - mean) * lessonWeight;
}

}  // namespace

nap_planner::plan nap_planner::next(const look& seen) {
  learn(seen);
  const bool inProgress = seen.missing > 0;
  const bool inVain = inProgress && seen.packets == 0;
  if (inVain || packetDistance_ == 0 || (!inProgress && !steady_)) {
    return nextPacket;
  }
  const double now = count_of(seen.now);
  const double end = inProgress ? newest_ + seen.missing * packetDistance_ : frameEnd_ + frameDistance_;
  const double slack = inProgress ? packetDistance_ : std::clamp(unsteadiness_, leastSlack, mostSlack);
  if (!inProgress && end + slack < now) {
    return nextPacket;  // overdue
  }
  // Taking a whole frame lasts as long as part of its arrival does. It begins early, so that it is through
  // when the last packet comes.
  const double lead = std::min(packetsOfFrame_ * packetCost_, packetsOfFrame_ * packetDistance_ / 2);
  const double wait = end - now;
  const double sleep = std::min(wait > 2 * lead ? wait - lead : wait + slack, longest_nap(seen));
  if (sleep < shortestNap && sleep < wait) {
    return nextPacket;  // the buffer is too small for a nap
  }
  return {false, nanoseconds(std::llround(std::max(sleep, shortestNap)))};
}

// Until the buffer is filled as far as a nap may let it be.
double nap_planner::longest_nap(const look& seen) const {
  const double untilFull =
      packetFill_ == 0 ? packetsOfFrame_ * packetDistance_ : mostFill / packetFill_ * packetDistance_;
  if (seen.missing > 0) {
    return untilFull;
  }
  const double begin = frameEnd_ + frameDistance_ - packetsOfFrame_ * packetDistance_;
  return std::max(begin - count_of(seen.now), 0.0) + untilFull;
}

void nap_planner::learn(const look& seen) {
  if (seen.packets == 0) {
    return;
  }
  const double newest = count_of(seen.newest);
  const double packets = seen.packets;
  if (seen.packets >= fewPackets) {
    weigh_in(packetCost_, count_of(seen.now - seen.woke) / packets);
  }
  // Packets that came while others were taken make this too little, never too much.
  packetFill_ = std::max(packetFill_, seen.fill / packets);
  const bool sameFrame = missingBefore_ == seen.packets + seen.missing;
  if (sameFrame) {
    weigh_in(packetDistance_, (newest - newest_) / packets);
  }
  if (seen.frameEnded) {
    learn_frame_distance(newest);
  }
  newest_ = newest;
  missingBefore_ = seen.missing;
}

void nap_planner::learn_frame_distance(double end) {
  double distance = end - frameEnd_;
  const bool first = frameEnd_ == 0;
  frameEnd_ = end;
  if (first) {
    return;
  }
  // A frame that was lost does not make its neighbours unexpected; two in a row are another rate.
  const double frames = frameDistance_ == 0 ? 1 : std::max(1.0, std::round(distance / frameDistance_));
  if (frames == 1 || !skipped_) {
    distance /= frames;
  }
  skipped_ = frames > 1;
  const double deviation = std::abs(distance - frameDistance_);
  steady_ = frameDistance_ != 0 && deviation < std::min(frameDistance_ * steadyShare, steadyTime);
  if (steady_) {
    weigh_in(unsteadiness_, deviation);
    weigh_in(frameDistance_, distance);
  } else {
    frameDistance_ = distance;
  }
}

}  // namespace gige
