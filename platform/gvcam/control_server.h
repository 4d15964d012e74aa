// The control channel of an emulated camera, without socket and clock. A command goes in; its answer comes
// out, and what the rest of the camera has to do.
//
// One client at a time has control. It alone can write registers. It loses control when it sends no command
// for its heartbeat time-out. Other clients can read, unless its access is exclusive. A command that is sent
// again, because its answer was lost, gets the same answer and is not executed again. A datagram that is not
// a command gets no answer.
#ifndef PLATFORM_GVCAM_CONTROL_SERVER_H
#define PLATFORM_GVCAM_CONTROL_SERVER_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/gige_protocol/gvcp.h"
#include "platform/gvcam/registers.h"

namespace gvcam {

// Source or destination of a datagram. 127.0.0.1 is 0x7f000001.
struct endpoint {
  std::uint32_t ip = 0;
  std::uint16_t port = 0;

  friend bool operator==(const endpoint&, const endpoint&) = default;
};

// The camera's clock: time since power-up.
using camera_time = std::chrono::nanoseconds;

// What the camera has to do after a command, in this order.
struct outcome {
  bool isControlLost = false;  // the client released it, or its heartbeat failed
  bool isStreamStopped = false;
  bool isStreamStarted = false;
  unsigned triggers = 0;  // how many software triggers
  bool wantsTestPacket = false;
  std::optional<gige_protocol::resend_request> resend;
  // FORCEIP for this camera. It has no answer yet, because only sockets show whether the address can be used.
  std::optional<gige_protocol::forced_ip> address;
  std::optional<gige_protocol::message> answer;
};

// Not for several threads at once.
class control_server {
 public:
  // `memory` has the registers. When a client loses control, the settings of `powerUp` are restored before
  // another client can take control; with nullptr they are kept. Both must outlive it.
  control_server(register_memory& memory, const register_memory* powerUp);

  // Executes a command. `now` must not be earlier than in calls before.
  outcome handle(gige_protocol::byte_view datagram, const endpoint& from, camera_time now);
  // Takes control from a client whose heartbeat time-out is over. True when it did; the stream is then to be
  // stopped.
  bool expire(camera_time now);

  // Occupied: a client that sends nothing takes control as soon as no other client has it, and keeps it. Not
  // occupied: that client lets go.
  void set_occupied(bool occupied);

  // When timestamps were 0.
  camera_time clock_start() const { return clockStart_; }

 private:
  struct executed_write {
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
  bool isOccupied_ = false;  // see `set_occupied`
  camera_time lastHeard_{};  // of the controller
  camera_time clockStart_{};
  std::optional<executed_write> lastWrite_;
};

}  // namespace gvcam

#endif
