// When a UDP receiver looks at its socket: a decision without a clock.
#ifndef PLATFORM_GIGE_STREAM_NAP_PLANNER_H
#define PLATFORM_GIGE_STREAM_NAP_PLANNER_H

#include <chrono>
#include <cstdint>

namespace gige {

// A receiver that the system wakes for each packet pays for waking, not for packets. One that sleeps through
// most of a frame and wakes by the time it is complete finds its packets waiting in the socket. When that
// will be is learnt from the frames before: their distance, and the distance of packets within a frame. Two
// things keep naps short: the end of a frame, for delivery waits for the nap, and the socket's buffer, of
// which a nap lets half be filled. Where nothing is known yet the receiver waits for a packet, and so it
// does, or nearly, when packets were asked for again: they come when they come.
class nap_planner {
 public:
  using nanoseconds = std::chrono::nanoseconds;

  // What the receiver knows when it has emptied its socket. Times are of one clock that never steps.
  struct observation {
    nanoseconds woke{};         // when it began
    nanoseconds now{};          // when it was through
    nanoseconds newest{};       // arrival of the last packet that was taken, if any was
    std::uint32_t packets = 0;  // taken
    bool frameEnded = false;    // the last packet that was taken made a frame complete
    std::uint32_t missing = 0;  // packets that the frame in progress lacks; 0: none is in progress
    double fill = 0;            // of the socket's buffer as the look began, 0 to 1
    bool awaiting = false;      // packets that were asked for again
  };

  struct plan {
    bool untilPacket;   // sleep until a packet comes, however long that takes
    nanoseconds sleep;  // otherwise so long, whatever comes
  };

  explicit nap_planner(std::uint32_t packetsOfFrame) : packetsOfFrame_(packetsOfFrame) {}

  plan next(const observation& seen);

 private:
  void learn(const observation& seen);
  void learn_packet_distance(const observation& seen, double newest);
  void learn_frame_distance(double end);
  double longest_nap(const observation& seen) const;

  // Times are nanoseconds. Distances and costs are 0 until they are known.
  const std::uint32_t packetsOfFrame_;
  double packetDistance_ = 0;  // from packet to packet within a frame
  double packetCost_ = 0;      // of taking one
  double packetFill_ = 0;      // of the buffer, by one
  double frameDistance_ = 0;   // from end to end
  double unsteadiness_ = 0;    // mean deviation from it
  bool steady_ = false;        // the last frame came when it was expected to
  bool skipped_ = false;       // or a whole number of frames later
  double frameEnd_ = 0;        // of the last frame that ended
  double expected_ = 0;        // when it would have ended had nothing held it up

  double newest_ = 0;               // packet of the look before
  double newestFirst_ = 0;          // of the first look at the frame in progress
  std::uint32_t missingFirst_ = 0;  // packets that it lacked then; 0: there was none
  std::uint32_t came_ = 0;          // since then
};

}  // namespace gige

#endif
