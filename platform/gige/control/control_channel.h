// The control channel of one camera: its registers and memory, by GVCP commands.
#ifndef PLATFORM_GIGE_CONTROL_CONTROL_CHANNEL_H
#define PLATFORM_GIGE_CONTROL_CONTROL_CHANNEL_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "platform/gige/control/connection_state.h"
#include "platform/gige/control/control_error.h"
#include "platform/gige/control/descriptor.h"
#include "platform/gige_protocol/gvcp.h"

namespace gige {

// How long a command waits.
struct patience {
  std::chrono::milliseconds answer{2000};  // for the answer to one try
  std::uint32_t retries = 3;               // tries beyond the first
  // From the first try on, while the camera answers that it is busy (PENDING_ACK). Cameras take one to three
  // seconds to save their settings. One that asks for more than this hangs or is forged.
  std::chrono::milliseconds pending{5000};
};

// A UDP socket from our address to the camera's control port, with its own sequence of request ids. Commands
// are sent one after the other: a second command waits until the first one is done. A retry keeps the id of
// the first try, so that a late answer to an earlier try counts. Datagrams that do not answer the command
// (other ids, wrong sizes, no GVCP) are dropped, and do not prolong the wait.
//
// Every command raises, beside the exceptions of its own comment,
//   camera_lost, wait_cancelled  at once, when the connection is lost before the command or during it
//   not_answered, refused        see control_error.h
// Threads: every function may be called from any thread.
class control_channel {
 public:
  using clock = std::chrono::steady_clock;

  // With an `ownAddress` of 0, the routing table chooses it. Sends nothing yet. Raises control_error when
  // there is no route to the camera.
  control_channel(std::shared_ptr<connection_state> connection, std::uint32_t ownAddress,
                  std::uint32_t cameraAddress, const patience& with);

  // Both ends of the channel, IPv4 in host byte order.
  std::uint32_t own_address() const { return ownAddress_; }
  std::uint16_t own_port() const { return ownPort_; }
  std::uint32_t camera_address() const { return cameraAddress_; }

  // For all commands that begin later.
  void set_patience(const patience& with);

  // READREG and WRITEREG of one register.
  std::uint32_t read_register(std::uint32_t address);
  void write_register(std::uint32_t address, std::uint32_t value);

  // READMEM of any range, by as many commands of whole 4-byte words as it takes. Raises control_error for a
  // range beyond the 32-bit address space.
  void read_memory(std::uint64_t address, std::span<std::uint8_t> to);
  // WRITEMEM, of whole 4-byte words. Raises control_error for other addresses and sizes, and for a range
  // beyond the 32-bit address space. After a failure, a part of a long write may be done.
  void write_memory(std::uint64_t address, std::span<const std::uint8_t> from);

  // For the heartbeat. Returns nothing, without waiting, while another command is under way.
  std::optional<std::uint32_t> read_register_if_idle(std::uint32_t address, const patience& with);

  // For giving control back: sends the write even when the connection is lost. Waits for the answer until the
  // connection's deadline, and not at all for a lost camera. Raises nothing; the result is dropped.
  void write_when_closing(std::uint32_t address, std::uint32_t value);

  // When the camera answered last. After a PENDING_ACK it is the time until which the camera said to be busy,
  // which may be in the future. Before the first answer it is the time of the construction.
  clock::time_point last_sign_of_life() const;
  // True when the camera denied access since the last call of this function: control may be gone.
  bool take_denial() { return denied_.exchange(false, std::memory_order_relaxed); }

  // Number of commands sent. Each retry counts.
  std::uint64_t commands() const { return commands_.load(std::memory_order_relaxed); }

 private:
  // A command that is under way.
  struct request {
    gige_protocol::command_code code;
    std::uint32_t address;
    std::uint16_t id;
    gige_protocol::message datagram;
    bool evenWhenLost = false;
  };
  // Stores what the payload of a successful answer holds; false when it does not answer the request.
  using reader = std::function<bool(gige_protocol::byte_view payload)>;
  enum class outcome { foreign, pending, answered };

  patience patience_now() const;

  // All of these under turn_.
  std::uint16_t next_id();
  std::uint32_t read_in_turn(std::uint32_t address, const patience& with);
  void write_in_turn(std::uint32_t address, std::uint32_t value, const patience& with, bool evenWhenLost);
  void exchange(const request& what, const patience& with, const reader& read);
  void send(const request& what);
  outcome await_answer(const request& what, const patience& with, clock::time_point pendingLimit,
                       const reader& read);
  bool await_datagram(const request& what, clock::time_point deadline);
  outcome receive(const request& what, const reader& read, clock::time_point& busyUntil);
  [[noreturn]] void refuse(const request& what, gige_protocol::status why);

  // Takes turn_. Reads one range and stores its bytes behind the first `skipped` ones.
  void read_block(gige_protocol::memory_range range, std::size_t skipped, std::span<std::uint8_t> to);
  std::string text_of(const request& what) const;
  void record_sign_of_life(clock::time_point when);

  const std::shared_ptr<connection_state> connection_;
  const std::uint32_t cameraAddress_;
  const descriptor socket_;
  std::uint32_t ownAddress_ = 0;
  std::uint16_t ownPort_ = 0;

  std::mutex turn_;  // held while a command is under way
  std::uint16_t lastId_;
  int lastErrno_ = 0;  // of the socket, during the command: a reason for no answer

  mutable std::mutex patienceMutex_;
  patience patience_;
  std::atomic<clock::rep> lastSignOfLife_;
  std::atomic<bool> denied_{false};
  std::atomic<std::uint64_t> commands_{0};
};

}  // namespace gige

#endif
