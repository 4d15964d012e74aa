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

// How long a command is waited for.
struct patience {
  std::chrono::milliseconds answer{2000};  // for the answer to one try
  std::uint32_t retries = 3;               // tries beyond the first
  // From the first try on, as long as the camera says that it is still at it (PENDING_ACK). Cameras take one
  // to three seconds to save their settings; whoever asks for more than this is stuck, or means harm.
  std::chrono::milliseconds pending{5000};
};

// A UDP socket from our address to the camera's control port, with request ids of its own. Commands go one
// after the other: one that comes while another one is under way waits for its turn. A command that is sent
// again keeps its id, so that a late answer to an earlier try counts. Datagrams that do not answer it (other
// ids, wrong sizes, no GVCP) are dropped and prolong nothing.
//
// Every command raises
//   camera_lost, wait_cancelled  the link is lost, at once, also when it is lost while the command waits
//   not_answered, refused        as their comments say
// and its own beside them. Threads: everything may be called from any thread.
class control_channel {
 public:
  using clock = std::chrono::steady_clock;

  // `ownAddress` 0 leaves it to the routes where commands are sent from. Nothing is sent yet. Raises
  // control_error when no way leads there.
  control_channel(std::shared_ptr<connection_state> connection, std::uint32_t ownAddress,
                  std::uint32_t cameraAddress, const patience& with);

  // Where the camera sees us, and where it is.
  std::uint32_t own_address() const { return ownAddress_; }
  std::uint16_t own_port() const { return ownPort_; }
  std::uint32_t camera_address() const { return cameraAddress_; }

  // Holds from the next command on.
  void set_patience(const patience& with);

  // READREG and WRITEREG of one register.
  std::uint32_t read_register(std::uint32_t address);
  void write_register(std::uint32_t address, std::uint32_t value);

  // READMEM of any range: in as many commands as it takes, each of whole 4-byte words as the protocol wants.
  // Raises control_error for a range that leaves the 32-bit address space.
  void read_memory(std::uint64_t address, std::span<std::uint8_t> to);
  // WRITEMEM. The protocol writes whole words only: raises control_error when address or length are no
  // multiple of 4, and as reading does. A write of several commands that fails may have been done in part.
  void write_memory(std::uint64_t address, std::span<const std::uint8_t> from);

  // For the heartbeat: reads with that patience, or returns nothing at once when another command is under
  // way.
  std::optional<std::uint32_t> read_register_if_idle(std::uint32_t address, const patience& with);

  // For giving back control: written even though the link is lost. Whether the camera took it is waited for
  // until the link's latest() and not told; a lost camera is not waited for. Raises nothing.
  void write_when_closing(std::uint32_t address, std::uint32_t value);

  // When the camera last showed that it is there: it answered, or, with PENDING_ACK, said until when it will
  // be busy. That may be ahead. The construction counts as a sign.
  clock::time_point last_sign_of_life() const;
  // Whether the camera denied access since this was last asked: control may be gone.
  bool take_denial() { return denied_.exchange(false, std::memory_order_relaxed); }

  // Commands sent so far, each try counted.
  std::uint64_t commands() const { return commands_.load(std::memory_order_relaxed); }

 private:
  // A command on its way.
  struct request {
    gige_protocol::command_code code;
    std::uint32_t address;
    std::uint16_t id;
    gige_protocol::message datagram;
    bool evenWhenLost = false;
  };
  // Takes what it wants out of the payload of a success; false when that is no answer to the request.
  using reader = std::function<bool(gige_protocol::byte_view payload)>;
  enum class outcome { foreign, pending, answered };

  patience patience_now() const;

  // All of these with the turn.
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

  // Takes the turn; puts what comes after the first `skipped` bytes of the range.
  void read_block(gige_protocol::memory_range range, std::size_t skipped, std::span<std::uint8_t> to);
  std::string text_of(const request& what) const;
  void record_sign_of_life(clock::time_point when);

  const std::shared_ptr<connection_state> connection_;
  const std::uint32_t cameraAddress_;
  const descriptor socket_;
  std::uint32_t ownAddress_ = 0;
  std::uint16_t ownPort_ = 0;

  std::mutex turn_;  // held for as long as a command is under way
  std::uint16_t lastId_;
  int lastErrno_ = 0;  // of the socket, during the command: tells why there was no answer

  mutable std::mutex patienceMutex_;
  patience patience_;
  std::atomic<clock::rep> lastSignOfLife_;
  std::atomic<bool> denied_{false};
  std::atomic<std::uint64_t> commands_{0};
};

}  // namespace gige

#endif
