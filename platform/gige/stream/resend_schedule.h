// The resend requests for the missing packets of one frame.
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

// Requests a missing packet at once, and again after each time-out. When a time-out passes and no request is
// left, the packet is written off. A frame that has lost one packet for good is broken: none of its other
// packets is requested.
class resend_schedule {
 public:
  // For a frame of at most `packetCount` packets. At most `budget` packets of it are requested; a packet that
  // is requested twice counts twice. `requestCount` rises with each. All references must outlive the
  // schedule. Raises std::bad_alloc.
  resend_schedule(std::uint32_t packetCount, std::uint32_t budget, packet_record& record,
                  resend_timeout& timeout, frame_owner& owner, std::uint64_t& requestCount);

  // Starts anew, for the frame with that id. Nothing is requested for an unwanted frame; its packets are only
  // awaited.
  void begin(std::uint64_t blockId, bool wanted);

  // Requests and awaits the missing packets from `first` on and before `end`. No packet may be passed twice.
  void request_missing(std::uint32_t first, std::uint32_t end, moment now);

  // Requests the missing packets from `first` on and before `end` although the camera may not have sent them
  // yet. They are neither awaited nor written off.
  void probe(std::uint32_t first, std::uint32_t end);

  // A requested packet has arrived.
  void arrived(std::uint32_t packet, moment now);

  // Requests again, or writes off, what did not arrive in time.
  void expire(moment now);
  // When `expire` has something to do; nothing while no packet is awaited.
  std::optional<moment> deadline();

 private:
  // Adjacent packets that were missing at that time.
  struct wait {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    moment since{};
  };
  void await(const wait& packets);
  bool may_request(std::uint32_t first, std::uint32_t last) const;
  void request(std::uint32_t first, std::uint32_t last);
  void repeat(const wait& late, moment now);
  wait pop_wait();

  const std::uint32_t budget_;
  packet_record& record_;
  resend_timeout& timeout_;
  frame_owner& owner_;
  std::uint64_t& requestCount_;

  std::uint64_t blockId_ = 0;
  std::uint32_t budgetLeft_ = 0;
  std::vector<wait> waits_;  // a ring, the oldest first, which is the order of their deadlines
  std::size_t firstWait_ = 0;
  std::size_t waitCount_ = 0;
  std::optional<wait>
      timed_;  // packets that were requested once; the first of them shows how long answers take
};

}  // namespace gige

#endif
