// Answers that wait to be sent, because a fault makes them late. It has no socket and no clock.
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
  // A command that reads or writes a byte of this range, or any command when `stallsAll`, is executed at once
  // and answered late.
  register_address stallFirst = 0;
  register_address stallLast = 0;
  bool stallsAll = false;
  std::chrono::milliseconds stall{0};  // how late
  bool saysPending = false;            // sends PENDING_ACK twice a second while an answer is late
  bool isGarbage = false;              // random bytes instead of answers, as many
};

// Not for several threads at once.
class answer_queue {
 public:
  struct datagram {
    endpoint to;
    gige_protocol::message content;
  };

  // Adds the answer to a command. It is dropped when a thousand answers wait.
  void put(const endpoint& to, gige_protocol::byte_view command, const gige_protocol::message& answer,
           const control_faults& faults, camera_time now);
  // Removes and returns the datagrams that are due.
  std::vector<datagram> take_due(camera_time now);
  // When the next datagram is due; nothing when none waits.
  std::optional<camera_time> next_due() const;

 private:
  struct waiting {
    datagram answer;
    std::uint16_t id;  // of the command
    camera_time due;
    std::optional<camera_time> pendingDue;  // the next PENDING_ACK
  };

  gige_protocol::message random_bytes(std::size_t size);

  std::vector<waiting> waiting_;
  std::minstd_rand random_{1};
};

}  // namespace gvcam

#endif
