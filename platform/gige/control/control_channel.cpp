#include "platform/gige/control/control_channel.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "platform/gige/control/addresses.h"
#include "platform/gige/control/request_id.h"

namespace gige {
namespace {

using std::chrono::milliseconds;
namespace protocol = gige_protocol;

constexpr std::uint64_t addressSpace = std::uint64_t{1} << 32U;
constexpr std::uint64_t wordSize = 4;

// For the write when closing, which has closingBudget for all tries.
constexpr patience closingPatience{.answer = milliseconds(25), .retries = 3, .pending = milliseconds(0)};
constexpr patience noPatience{.answer = milliseconds(0), .retries = 0, .pending = milliseconds(0)};

constexpr milliseconds longestPoll(60'000);  // poll() takes an int

descriptor connected_socket(std::uint32_t ownAddress, std::uint32_t cameraAddress) {
  descriptor made(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_in own = internet_address(ownAddress, 0);
  const sockaddr_in camera = internet_address(cameraAddress, protocol::controlPort);
  if (!made || bind(made.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      connect(made.get(), reinterpret_cast<const sockaddr*>(&camera), sizeof camera) != 0) {
    throw control_error("no way from " + address_text(ownAddress) + " to " + address_text(cameraAddress) +
                        ": " + std::strerror(errno));
  }
  return made;
}

bool take_any_payload(protocol::byte_view) {
  return true;
}

void check_range(std::uint64_t address, std::size_t size) {
  if (address >= addressSpace || size > addressSpace - address) {
    throw control_error("memory from " + std::to_string(address) + " on, " + std::to_string(size) +
                        " bytes: a camera's addresses have 32 bits");
  }
}

}  // namespace

control_channel::control_channel(std::shared_ptr<connection_state> connection, std::uint32_t ownAddress,
                                 std::uint32_t cameraAddress, const patience& with)
    : connection_(std::move(connection)),
      cameraAddress_(cameraAddress),
      socket_(connected_socket(ownAddress, cameraAddress)),
      lastId_(random_request_id()),
      patience_(with),
      lastSignOfLife_(clock::now().time_since_epoch().count()) {
  const sockaddr_in own = bound_address(socket_.get());
  ownAddress_ = address_of(own);
  ownPort_ = ntohs(own.sin_port);
}

void control_channel::set_patience(const patience& with) {
  const std::scoped_lock lock(patienceMutex_);
  patience_ = with;
}

patience control_channel::patience_now() const {
  const std::scoped_lock lock(patienceMutex_);
  return patience_;
}

// ---- Commands

std::uint32_t control_channel::read_register(std::uint32_t address) {
  const std::scoped_lock lock(turn_);
  return read_in_turn(address, patience_now());
}

std::optional<std::uint32_t> control_channel::read_register_if_idle(std::uint32_t address,
                                                                    const patience& with) {
  const std::unique_lock lock(turn_, std::try_to_lock);
  return lock ? std::optional(read_in_turn(address, with)) : std::nullopt;
}

std::uint32_t control_channel::read_in_turn(std::uint32_t address, const patience& with) {
  const std::uint16_t id = next_id();
  const request what{.code = protocol::command_code::read_register,
                     .address = address,
                     .id = id,
                     .datagram = protocol::make_read_registers(id, {&address, 1})};
  std::uint32_t value = 0;
  exchange(what, with, [&](protocol::byte_view payload) {
    const auto values = protocol::parse_register_values(payload);
    const bool one = values && values->size() == 1;
    value = one ? (*values)[0] : 0;
    return one;
  });
  return value;
}

void control_channel::write_register(std::uint32_t address, std::uint32_t value) {
  const std::scoped_lock lock(turn_);
  write_in_turn(address, value, patience_now(), false);
}

void control_channel::write_when_closing(std::uint32_t address, std::uint32_t value) {
  const std::scoped_lock lock(turn_);
  const bool hopeless = connection_->is_lost() && !connection_->is_cancelled();
  try {
    write_in_turn(address, value, hopeless ? noPatience : closingPatience, true);
  } catch (const control_error&) {  // the camera frees itself when it hears no more from us
  }
}

void control_channel::write_in_turn(std::uint32_t address, std::uint32_t value, const patience& with,
                                    bool evenWhenLost) {
  const std::uint16_t id = next_id();
  const protocol::register_write write{address, value};
  exchange({.code = protocol::command_code::write_register,
            .address = address,
            .id = id,
            .datagram = protocol::make_write_registers(id, {&write, 1}),
            .evenWhenLost = evenWhenLost},
           with, take_any_payload);
}

void control_channel::read_memory(std::uint64_t address, std::span<std::uint8_t> to) {
  check_range(address, to.size());
  // The last word may reach up to three bytes beyond the range.
  for (std::uint64_t at = address / wordSize * wordSize; at < address + to.size();) {
    const std::uint64_t skipped = address > at ? address - at : 0;
    const std::uint64_t left = address + to.size() - at;
    const std::uint64_t count =
        std::min<std::uint64_t>((left + wordSize - 1) / wordSize * wordSize, protocol::largestMemoryBlock);
    const std::uint64_t used = std::min(count, left) - skipped;
    read_block({.address = static_cast<std::uint32_t>(at), .count = static_cast<std::uint16_t>(count)},
               skipped, to.subspan(at + skipped - address, used));
    at += count;
  }
}

void control_channel::read_block(protocol::memory_range range, std::size_t skipped,
                                 std::span<std::uint8_t> to) {
  const std::scoped_lock lock(turn_);
  const std::uint16_t id = next_id();
  exchange({.code = protocol::command_code::read_memory,
            .address = range.address,
            .id = id,
            .datagram = protocol::make_read_memory(id, range)},
           patience_now(), [&](protocol::byte_view payload) {
             const auto block = protocol::parse_memory(payload);
             if (!block || block->address != range.address || block->bytes.size() != range.count) {
               return false;
             }
             std::ranges::copy(block->bytes.subspan(skipped, to.size()), to.begin());
             return true;
           });
}

void control_channel::write_memory(std::uint64_t address, std::span<const std::uint8_t> from) {
  check_range(address, from.size());
  if (address % wordSize != 0 || from.size() % wordSize != 0) {
    throw control_error("memory from " + std::to_string(address) + " on, " + std::to_string(from.size()) +
                        " bytes: cameras are written in whole words of 4 bytes");
  }
  for (std::size_t done = 0; done < from.size(); done += protocol::largestMemoryBlock) {
    const auto block = from.subspan(done, std::min(from.size() - done, protocol::largestMemoryBlock));
    const auto at = static_cast<std::uint32_t>(address + done);
    const std::scoped_lock lock(turn_);
    const std::uint16_t id = next_id();
    exchange({.code = protocol::command_code::write_memory,
              .address = at,
              .id = id,
              .datagram = protocol::make_write_memory(id, {.address = at, .bytes = block})},
             patience_now(), take_any_payload);
  }
}

// ---- One command, from its first try to its answer

std::uint16_t control_channel::next_id() {
  lastId_ = protocol::next_request_id(lastId_);
  return lastId_;
}

void control_channel::exchange(const request& what, const patience& with, const reader& read) {
  const auto pendingLimit = clock::now() + with.pending;
  lastErrno_ = 0;
  bool busy = false;
  std::uint32_t tries = 0;
  do {
    send(what);
    ++tries;
    const outcome last = await_answer(what, with, pendingLimit, read);
    if (last == outcome::answered) {
      return;
    }
    busy = busy || last == outcome::pending;
  } while (tries <= with.retries && clock::now() < connection_->deadline() &&
           !(busy && clock::now() >= pendingLimit));
  const milliseconds waited = busy ? with.pending : with.answer;
  throw not_answered(text_of(what) + (busy ? ": still busy after " : ": no answer within ") +
                     std::to_string(waited.count()) + " ms (tries:" + std::to_string(tries) +
                     (lastErrno_ != 0 ? std::string(", reason:") + std::strerror(lastErrno_) : "") + ")");
}

void control_channel::send(const request& what) {
  if (!what.evenWhenLost) {
    connection_->raise_if_lost();
  }
  commands_.fetch_add(1, std::memory_order_relaxed);
  if (::send(socket_.get(), what.datagram.data(), what.datagram.size(), MSG_NOSIGNAL) < 0) {
    lastErrno_ = errno;  // counts as a lost datagram: a retry follows
  }
}

// Returns `pending` when the camera was busy and no answer came.
control_channel::outcome control_channel::await_answer(const request& what, const patience& with,
                                                       clock::time_point pendingLimit, const reader& read) {
  auto deadline = clock::now() + with.answer;
  outcome last = outcome::foreign;
  do {
    if (!await_datagram(what, deadline)) {
      break;
    }
    auto busyUntil = clock::time_point::min();
    const outcome came = receive(what, read, busyUntil);
    if (came == outcome::answered) {
      return came;
    }
    if (came == outcome::pending) {
      last = came;
      record_sign_of_life(std::min(busyUntil, pendingLimit));
      deadline = std::max(deadline, std::min(busyUntil + with.answer, pendingLimit));
    }
  } while (clock::now() < deadline);
  return last;
}

// False when none arrived in time.
bool control_channel::await_datagram(const request& what, clock::time_point deadline) {
  for (;;) {
    if (!what.evenWhenLost) {
      connection_->raise_if_lost();
    }
    // Once hurried, the descriptor is readable for good, and poll() would not wait.
    const bool waitsForWake = !what.evenWhenLost && !connection_->is_hurried();
    const auto left =
        std::chrono::ceil<milliseconds>(std::min(deadline, connection_->deadline()) - clock::now()).count();
    std::array<pollfd, 2> waiting{
        {{socket_.get(), POLLIN, 0}, {waitsForWake ? connection_->wake_descriptor() : -1, POLLIN, 0}}};
    poll(waiting.data(), waiting.size(),
         static_cast<int>(std::clamp<std::int64_t>(left, 0, longestPoll.count())));
    if (waiting[0].revents != 0) {
      return true;
    }
    if (left <= 0) {
      return false;
    }
  }
}

// Sets `busyUntil` with `pending`.
control_channel::outcome control_channel::receive(const request& what, const reader& read,
                                                  clock::time_point& busyUntil) {
  std::array<std::uint8_t, protocol::largestMessage + 1> bytes{};  // one more shows what is too large
  const ssize_t size = recv(socket_.get(), bytes.data(), bytes.size(), 0);
  if (size < 0) {
    lastErrno_ = errno;
    return outcome::foreign;
  }
  const auto came = protocol::parse_acknowledge(std::span(bytes).first(static_cast<std::size_t>(size)));
  if (!came || came->id != what.id) {
    return outcome::foreign;
  }
  if (came->code == protocol::acknowledge_code::pending) {
    const auto duration = protocol::parse_pending(came->payload);
    busyUntil = clock::now() + milliseconds(duration ? *duration : 0);
    return duration ? outcome::pending : outcome::foreign;
  }
  if (came->code != protocol::acknowledge_of(what.code)) {
    return outcome::foreign;
  }
  if (came->result != protocol::status::success) {
    record_sign_of_life(clock::now());
    refuse(what, came->result);
  }
  if (!read(came->payload)) {
    return outcome::foreign;
  }
  record_sign_of_life(clock::now());
  return outcome::answered;
}

void control_channel::refuse(const request& what, protocol::status why) {
  if (why == protocol::status::access_denied) {
    denied_.store(true, std::memory_order_relaxed);
  }
  std::array<char, 16> number{};
  std::snprintf(number.data(), number.size(), " (0x%04x)", static_cast<unsigned>(why));
  throw refused(text_of(what) + ": refused, " + protocol::text_of(why) + number.data(), why);
}

std::string control_channel::text_of(const request& what) const {
  std::array<char, 16> number{};
  std::snprintf(number.data(), number.size(), " of 0x%08x", static_cast<unsigned>(what.address));
  return protocol::name_of(what.code) + std::string(number.data()) + " at " + address_text(cameraAddress_);
}

void control_channel::record_sign_of_life(clock::time_point when) {
  lastSignOfLife_.store(when.time_since_epoch().count(), std::memory_order_relaxed);
}

control_channel::clock::time_point control_channel::last_sign_of_life() const {
  return clock::time_point(clock::duration(lastSignOfLife_.load(std::memory_order_relaxed)));
}

}  // namespace gige
