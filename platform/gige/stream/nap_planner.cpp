#include "platform/gige/stream/nap_planner.h"

#include <algorithm>
#include <cmath>

namespace gige {
namespace {

constexpr double microsecond = 1000;

// A shorter nap costs more than to be woken by the packets that it would save.
constexpr double shortestNap = 40 * microsecond;
constexpr double awaitingNap = 1000 * microsecond;
constexpr double mostFill = 0.5;

// Behind the moment when a frame is expected to end; frames that are late by more cost one more nap.
constexpr double leastSlack = 10 * microsecond;
constexpr double mostSlack = 200 * microsecond;

constexpr double lessonWeight = 1.0 / 8;   // of what was seen last
constexpr double mostRise = 1 + 1.0 / 64;  // of the packets' distance, from frame to frame
// A frame that deviates by more from when it was expected shows another rate, or a camera that has none. A
// nap of half a millisecond too long is late already.
constexpr double steadyShare = 1.0 / 8;  // of the frames' distance
constexpr double steadyTime = 400 * microsecond;
constexpr std::uint32_t fewPackets = 8;  // taking fewer says little of what one costs

constexpr nap_planner::plan nextPacket{true, {}};

double count_of(nap_planner::nanoseconds time) {
  return static_cast<double>(time.count());
}

// With what was seen weighed in; the first one as it is.
double mean_of(double before, double seen) {
  return before == 0 ? seen : before + (seen - before) * lessonWeight;
}

}  // namespace

nap_planner::plan nap_planner::next(const observation& seen) {
  learn(seen);
  const bool inProgress = seen.missing > 0;
  const bool inVain = inProgress && seen.packets == 0;
  const bool unknown = packetDistance_ == 0 || (!inProgress && (!steady_ || seen.awaiting));
  if (inVain || unknown) {
    return nextPacket;
  }
  const double now = count_of(seen.now);
  const double end = inProgress ? newest_ + seen.missing * packetDistance_ : expected_ + frameDistance_;
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

// Until the buffer is filled as far as a nap may let it be, or packets that were asked for again may be
// there.
double nap_planner::longest_nap(const observation& seen) const {
  if (seen.awaiting) {
    return awaitingNap;
  }
  const double untilFull =
      packetFill_ == 0 ? packetsOfFrame_ * packetDistance_ : mostFill / packetFill_ * packetDistance_;
  if (seen.missing > 0) {
    return untilFull;
  }
  const double begin = expected_ + frameDistance_ - packetsOfFrame_ * packetDistance_;
  return std::max(begin - count_of(seen.now), 0.0) + untilFull;
}

void nap_planner::learn(const observation& seen) {
  if (seen.packets == 0) {
    return;
  }
  const double newest = count_of(seen.newest);
  const double packets = seen.packets;
  if (seen.packets >= fewPackets) {
    packetCost_ = mean_of(packetCost_, count_of(seen.now - seen.woke) / packets);
  }
  // Packets that came while others were taken make this too little, never too much.
  packetFill_ = std::max(packetFill_, seen.fill / packets);
  learn_packet_distance(seen, newest);
  if (seen.frameEnded) {
    learn_frame_distance(newest);
  }
  newest_ = newest;
}

// From the first look at a frame to its end. Part of a frame must come in between: what little comes after a
// sender was held up says nothing.
void nap_planner::learn_packet_distance(const observation& seen, double newest) {
  const std::uint32_t came = missingFirst_ - std::min(seen.missing, missingFirst_);
  came_ += seen.packets;
  if (missingFirst_ == 0 || came_ != came || seen.awaiting) {
    missingFirst_ = seen.missing;
    newestFirst_ = newest;
    came_ = 0;
  } else if (seen.frameEnded) {
    const double distance = (newest - newestFirst_) / came;
    if (came > packetsOfFrame_ / 8) {
      // To expect the end too late delays it; to expect it too early costs a nap. So the distance falls at
      // once, and one frame whose sender was held up does not raise it by much.
      packetDistance_ = packetDistance_ == 0 ? distance : std::min(distance, packetDistance_ * mostRise);
    }
    missingFirst_ = 0;
  }
}

void nap_planner::learn_frame_distance(double end) {
  double distance = end - frameEnd_;
  const bool first = frameEnd_ == 0;
  frameEnd_ = end;
  if (first) {
    expected_ = end;
    return;
  }
  // A frame that was lost does not make its neighbours unexpected; two in a row are another rate.
  const double frames = frameDistance_ == 0 ? 1 : std::max(1.0, std::round(distance / frameDistance_));
  if (frames == 1 || !skipped_) {
    distance /= frames;
  }
  skipped_ = frames > 1;
  const double late = end - (expected_ + frames * frameDistance_);
  const bool wasSteady = steady_;
  steady_ = frameDistance_ != 0 && std::abs(late) < std::min(frameDistance_ * steadyShare, steadyTime);
  // A frame that was held up on its way delays neither the next one nor, by much, what is expected of it.
  // 10 ms apart, frames that ended at 0, 10.4 and 20.0 ms let the next one be expected near 30.0, not 30.4.
  expected_ = late > 0 && (steady_ || wasSteady) ? end - late * (1 - lessonWeight) : end;
  if (steady_) {
    unsteadiness_ = mean_of(unsteadiness_, std::abs(late));
    frameDistance_ = mean_of(frameDistance_, distance);
  } else if (!wasSteady) {
    frameDistance_ = distance;
  }
}

}  // namespace gige
