// The way of a camera's answers to its clients, with what can go wrong on it. No socket and no clock.
#ifndef PLATFORM_GVCAM_ANSWER_QUEUE_H
#define PLATFORM_GVCAM_ANSWER_QUEUE_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "platform/gige_protocol/gvcp.h"
#include "platform/gvcam/control_server.h"

namespace gvcam {

struct control_faults {
  // Commands that touch a byte of this range of the memory, or all commands, are done at once and answered
  // late.
  register_address stallFirst = 0;
  register_address stallLast = 0;
  bool stallsAll = false;
  std::chrono::milliseconds stall{0};
  bool saysPending = false;  // PENDING_ACK, twice a second while an answer is late
  bool isGarbage = false;    // answers are noise of their own size
};

// Not for several threads at once.
class answer_queue {
 public:
  struct parcel {
    endpoint to;
    gige_protocol::message content;
  };

  // Takes the answer to a command. When a thousand answers wait already, it is lost.
  void put(const endpoint& to, gige_protocol::byte_view command, const gige_protocol::message& answer,
           const control_faults& faults, camera_time now);
  // What is to be sent by now, which it is then thought to be.
  std::vector<parcel> take_due(camera_time now);
  // When there is something to be sent next.
  std::optional<camera_time> next_due() const;

 private:
  struct waiting {
    parcel answer;
    std::uint16_t id;  // of the command
    camera_time due;
    std::optional<camera_time> pendingDue;  // the next PENDING_ACK
  };

  gige_protocol::message noise(std::size_t size);

  std::vector<waiting> waiting_;
  std::minstd_rand random_{1};
};

}  // namespace gvcam

#endif
