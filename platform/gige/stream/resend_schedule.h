// The requests for the missing packets of one frame.
#ifndef PLATFORM_GIGE_STREAM_RESEND_SCHEDULE_H
#define PLATFORM_GIGE_STREAM_RESEND_SCHEDULE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/gige/stream/frame_owner.h"
#include "platform/gige/stream/packet_record.h"
#include "platform/gige/stream/resend_timeout.h"

namespace gige {

// A missing packet is asked for at once and after each time-out, and written off when a time-out passes after
// which it may not be asked for. Packets of a frame that has lost one for good are not asked for.
class resend_schedule {
 public:
  // Of a frame of at most `packetCount` packets, of which `budget` may be asked for, repetitions counted. The
  // others are the stream's, and must outlive this. Raises std::bad_alloc.
  resend_schedule(std::uint32_t packetCount, std::uint32_t budget, packet_record& record,
                  resend_timeout& timeout, frame_owner& owner);

  // Starts anew, for the frame with that id. A frame that is not wanted is only waited for.
  void begin(std::uint64_t blockId, bool wanted);

  // Asks for the missing packets from `first` on and before `end`, which it was not told of before. Gives the
  // number of packets that it asked for, as does `expire`.
  std::uint32_t miss(std::uint32_t first, std::uint32_t end, moment now);

  // Asks for the missing packets from `first` on and before `end`, which the camera may not have sent yet:
  // none of them is waited for or written off. Gives the number of packets that it asked for.
  std::uint32_t probe(std::uint32_t first, std::uint32_t end);

  // A packet that was asked for has come.
  void arrived(std::uint32_t packet, moment now);

  // Deals with what did not come in time.
  std::uint32_t expire(moment now);
  // When there is something to expire.
  std::optional<moment> deadline();

 private:
  struct wait {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    moment since{};
  };
  std::uint32_t await(std::uint32_t first, std::uint32_t last, moment now);
  bool may_ask_for(std::uint32_t count) const;
  std::uint32_t request(std::uint32_t first, std::uint32_t last);
  std::uint32_t repeat(const wait& late, moment now);
  wait pop_wait();

  const std::uint32_t budget_;
  packet_record& record_;
  resend_timeout& timeout_;
  frame_owner& owner_;

  std::uint64_t blockId_ = 0;
  std::uint32_t budgetLeft_ = 0;
  std::vector<wait> waits_;  // a ring, the oldest first: their order is that of their deadlines
  std::size_t firstWait_ = 0;
  std::size_t waitCount_ = 0;
  std::optional<wait> timed_;  // a request that was made once, whose first packet tells how long answers take
};

}  // namespace gige

#endif
