// The control channel of an emulated camera as a function: the bytes of a command in, the bytes of its answer
// out, and what the rest of the camera has to do about it. No socket and no clock.
//
// One client at a time has control: it alone writes registers, and it loses control when it says nothing for
// its heartbeat time-out. The others may read unless it wants the camera for itself. A command that comes
// again, because its answer was lost, gets the same answer and is not done again. Junk gets no answer.
#ifndef PLATFORM_GVCAM_CONTROL_SERVER_H
#define PLATFORM_GVCAM_CONTROL_SERVER_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/gige_protocol/gvcp.h"
#include "platform/gvcam/registers.h"

namespace gvcam {

// Where a datagram comes from or goes to; 127.0.0.1 is 0x7f000001.
struct endpoint {
  std::uint32_t ip = 0;
  std::uint16_t port = 0;

  friend bool operator==(const endpoint&, const endpoint&) = default;
};

// The camera's clock: time since power-up.
using camera_time = std::chrono::nanoseconds;

// What a command leads to. Where several things are to be done, it is in this order.
struct outcome {
  bool isControlLost = false;  // by the client that had it: released, or not heard of for too long
  bool isStreamStopped = false;
  bool isStreamStarted = false;
  unsigned triggers = 0;  // of the software trigger
  bool wantsTestPacket = false;
  std::optional<gige_protocol::resend_request> resend;
  // FORCEIP for this camera, which is not answered yet: whether the address can be had is not known here.
  std::optional<gige_protocol::forced_ip> address;
  std::optional<gige_protocol::message> answer;
};

// Not for several threads at once.
class control_server {
 public:
  // Works on these registers. When control is lost, the settings of `powerUp` come back before anybody else
  // can have control; nullptr: they stay as they are. Both must outlive it.
  control_server(register_memory& memory, const register_memory* powerUp);

  // Does a command. Time must not go back.
  outcome handle(gige_protocol::byte_view datagram, const endpoint& from, camera_time now);
  // Takes control away from a client that was not heard of for its heartbeat time-out; true when it did, and
  // the stream ends with it.
  bool expire(camera_time now);

  // Lets a client that never says anything have control, once nobody else has, and ends that.
  void set_occupied(bool occupied);

  // Since when timestamps count.
  camera_time clock_start() const { return clockStart_; }

 private:
  struct done_write {
    endpoint from;
    std::vector<std::uint8_t> command;
    gige_protocol::message answer;
  };

  bool is_repeated(const endpoint& from, gige_protocol::byte_view datagram);
  void execute(const gige_protocol::command& request, const endpoint& from, camera_time now, outcome& result);
  gige_protocol::message discover(const gige_protocol::command& request) const;
  void force_ip(const gige_protocol::command& request, outcome& result) const;
  gige_protocol::message read_registers(const gige_protocol::command& request, const endpoint& from) const;
  gige_protocol::message read_memory(const gige_protocol::command& request, const endpoint& from) const;
  gige_protocol::message write_registers(const gige_protocol::command& request, const endpoint& from,
                                         camera_time now, outcome& result);
  gige_protocol::message write_memory(const gige_protocol::command& request, const endpoint& from,
                                      camera_time now, outcome& result);
  gige_protocol::status read(register_address at, std::span<std::uint8_t> to, const endpoint& from) const;
  gige_protocol::status write(const gige_protocol::register_write& wanted, const endpoint& from,
                              camera_time now, outcome& result);
  gige_protocol::status apply(const gige_protocol::register_write& wanted, camera_time now, outcome& result);
  gige_protocol::status claim(std::uint32_t wanted, const endpoint& from, outcome& result);
  void act(const gige_protocol::register_write& wanted, camera_time now, outcome& result);
  void acquire(bool wanted, outcome& result);
  void control_clock(std::uint32_t wanted, camera_time now);
  void grant(const endpoint& to, std::uint32_t kind);
  void release();

  register_memory& memory_;
  const register_memory* powerUp_;
  std::optional<endpoint> controller_;
  bool isOccupied_ = false;  // wanted by `set_occupied`
  camera_time lastHeard_{};  // of the controller
  camera_time clockStart_{};
  std::optional<done_write> lastWrite_;
};

}  // namespace gvcam

#endif
