// When a UDP receiver reads its socket: a decision without a clock.
#ifndef PLATFORM_GIGE_STREAM_NAP_PLANNER_H
#define PLATFORM_GIGE_STREAM_NAP_PLANNER_H

#include <chrono>
#include <cstdint>

namespace gige {

// A receiver that the system wakes for each packet spends its time on waking up, not on packets. A receiver
// that sleeps while most of a frame arrives, and wakes when the frame is complete, finds all of its packets
// in the socket. The planner predicts that moment from the frames before: from the interval of frames, and
// from the interval of packets within a frame.
//
// Two things limit a nap. Delivery of a frame waits for the nap to end, so a nap ends with the frame. The
// socket's buffer must not overflow, so a nap lets at most half of it fill.
//
// Until the intervals are known, the receiver waits for packets. While it awaits packets that were requested
// again, it naps for a millisecond at most, since nobody knows when those arrive.
class nap_planner {
 public:
  using nanoseconds = std::chrono::nanoseconds;

  // What the receiver knows once it has emptied its socket. Times are of one clock that never steps.
  struct observation {
    nanoseconds woke{};         // when it began to read
    nanoseconds now{};          // when it was done
    nanoseconds newest{};       // arrival of the last packet that it read; of no meaning when it read none
    std::uint32_t packets = 0;  // that it read
    bool frameEnded = false;    // the last of them made a frame complete
    std::uint32_t missing = 0;  // packets that the frame in progress lacks; 0: none is in progress
    double fill = 0;            // of the socket's buffer when it began, 0 to 1
    bool awaiting = false;      // packets were requested again
  };

  struct plan {
    bool untilPacket;   // sleep until a packet arrives, however long that takes
    nanoseconds sleep;  // otherwise for this time, whatever arrives
  };

  explicit nap_planner(std::uint32_t packetsPerFrame) : packetsPerFrame_(packetsPerFrame) {}

  plan next(const observation& seen);

 private:
  void learn(const observation& seen);
  void learn_packet_interval(const observation& seen, double newest);
  void learn_frame_interval(double end);
  double longest_nap(const observation& seen) const;
  double next_frame_end() const { return expectedEnd_ + frameInterval_; }

  // Times are nanoseconds. Intervals and costs are 0 until they are known.
  const std::uint32_t packetsPerFrame_;
  double packetInterval_ = 0;  // within a frame
  double packetCost_ = 0;      // of reading one packet
  double packetFill_ = 0;      // of the buffer, by one packet
  double frameInterval_ = 0;   // from end to end
  double jitter_ = 0;          // mean deviation of a frame's end from the expected one
  bool steady_ = false;        // the last frame ended when it was expected to
  bool skipped_ = false;       // frames were lost in front of the last frame
  double lastEnd_ = 0;         // of a frame
  double expectedEnd_ = 0;     // of the same frame, had nothing held it up

  double newest_ = 0;  // arrival of the last packet that was read

  // The frame in progress as it was first observed; missing is 0 when there is none.
  struct {
    std::uint32_t missing = 0;  // packets
    double newest = 0;          // arrival of the last packet before
    std::uint32_t packets = 0;  // that were read since
  } first_;
};

}  // namespace gige

#endif
