#include "platform/gvcam/control_server.h"

#include <algorithm>
#include <array>
#include <optional>

#include "platform/gvcam/frame_settings.h"

namespace gvcam {
namespace {

using gige_protocol::acknowledge_of;
using gige_protocol::byte_view;
using gige_protocol::command;
using gige_protocol::command_code;
using gige_protocol::message;
using gige_protocol::register_write;
using gige_protocol::status;
namespace packet_size = gige_protocol::packet_size;
namespace standard = gige_protocol::registers;
namespace privilege = gige_protocol::control_privilege;

constexpr std::uint32_t shortestHeartbeatMs = 500;
constexpr std::uint32_t smallestPacket = 576;
constexpr std::uint32_t largestPacket = 65532;

// The client of `set_occupied`. No datagram comes from there.
constexpr endpoint silentClient{0, 0};

// Registers that every client can read: they say who has control.
bool names_controller(register_address at) {
  return at >= standard::controlChannelPrivilege && at <= standard::primaryApplicationIp;
}

bool is_write(command_code code) {
  return code == command_code::write_register || code == command_code::write_memory;
}

// Registers of which a client can set some bits only. A mask of 0: writing does something, and they read as
// 0.
struct writable_bits {
  register_address address;
  std::uint32_t mask;
};
constexpr std::array writableBits = {
    writable_bits{standard::timestampControl, 0},
    writable_bits{standard::gvcpConfiguration, gige_protocol::gvcp_configuration::extendedStatusCodes |
                                                   gige_protocol::gvcp_configuration::extendedStatusCodes2 |
                                                   gige_protocol::gvcp_configuration::pendingAcknowledge},
    writable_bits{standard::gvspConfiguration, gige_protocol::gvsp_configuration::extendedIds},
    writable_bits{standard::streamConfiguration, gige_protocol::stream_options::extendedChunks},
    writable_bits{standard::streamPort, gige_protocol::stream_port::portMask},
    writable_bits{features::triggerSoftware, 0},
};

std::uint32_t adjusted_packet_size(std::uint32_t wanted) {
  const std::uint32_t size = std::clamp(wanted & packet_size::sizeMask, smallestPacket, largestPacket);
  return (wanted & packet_size::doNotFragment) | size / wordSize * wordSize;
}

// The value that a register takes for a write. Nothing for a size that no frame can have.
std::optional<std::uint32_t> adjusted(const register_write& wanted, const register_memory& memory) {
  const auto upTo = [&](register_address largest) {
    return wanted.value > 0 && wanted.value <= memory.word(largest) ? std::optional(wanted.value)
                                                                    : std::nullopt;
  };
  switch (wanted.address) {
    case standard::heartbeatTimeout:
      return std::max(wanted.value, shortestHeartbeatMs);
    case standard::streamPacketSize:
      return adjusted_packet_size(wanted.value);
    case features::width:
      return upTo(features::sensorWidth);
    case features::height:
      return upTo(features::sensorHeight);
    default: {
      const auto* const bits = std::ranges::find(writableBits, wanted.address, &writable_bits::address);
      return bits == writableBits.end() ? wanted.value : wanted.value & bits->mask;
    }
  }
}

message refusal(const command& request, status why) {
  return make_acknowledge(acknowledge_of(request.code), request.id, why);
}

}  // namespace

control_server::control_server(register_memory& memory, const register_memory* powerUp)
    : memory_(memory), powerUp_(powerUp) {}

outcome control_server::handle(byte_view datagram, const endpoint& from, camera_time now) {
  outcome result;
  result.isControlLost = expire(now);
  const auto request = gige_protocol::parse_command(datagram);
  if (!request) {
    return result;
  }
  if (controller_ == from) {
    lastHeard_ = now;
  }
  if (is_repeated(from, datagram)) {
    result.answer = lastWrite_->answer;
  } else {
    const bool hadControl = controller_ == from;
    execute(*request, from, now, result);
    if (is_write(request->code) && (hadControl || controller_ == from)) {
      lastWrite_ = {from, {datagram.begin(), datagram.end()}, *result.answer};
    }
  }
  if (!request->wants_acknowledge()) {
    result.answer.reset();
  }
  return result;
}

// A client that sends another command has the answer to the one before. So only the latest write can be
// repeated.
bool control_server::is_repeated(const endpoint& from, byte_view datagram) {
  if (!lastWrite_ || lastWrite_->from != from) {
    return false;
  }
  if (std::ranges::equal(lastWrite_->command, datagram)) {
    return true;
  }
  lastWrite_.reset();
  return false;
}

bool control_server::expire(camera_time now) {
  if (!controller_ || *controller_ == silentClient) {
    return false;
  }
  const std::chrono::milliseconds patience(memory_.word(standard::heartbeatTimeout));
  if (now - lastHeard_ <= patience) {
    return false;
  }
  release();
  return true;
}

void control_server::set_occupied(bool occupied) {
  isOccupied_ = occupied;
  if (occupied && !controller_) {
    grant(silentClient, privilege::control);
  }
  if (!occupied && controller_ == silentClient) {
    release();
  }
}

void control_server::execute(const command& request, const endpoint& from, camera_time now, outcome& result) {
  switch (request.code) {
    case command_code::discovery:
      result.answer = discover(request);
      break;
    case command_code::force_ip:
      force_ip(request, result);
      break;
    case command_code::packet_resend:
      if (const auto wanted = parse_packet_resend(request)) {
        result.resend = *wanted;
      }
      break;
    case command_code::read_register:
      result.answer = read_registers(request, from);
      break;
    case command_code::write_register:
      result.answer = write_registers(request, from, now, result);
      break;
    case command_code::read_memory:
      result.answer = read_memory(request, from);
      break;
    case command_code::write_memory:
      result.answer = write_memory(request, from, now, result);
      break;
    default:
      result.answer = refusal(request, status::not_implemented);
  }
}

message control_server::discover(const command& request) const {
  // The registers have the size of a record, so that parsing cannot fail.
  const auto record =
      gige_protocol::parse_discovery(memory_.bytes(standard::version, standard::identitySize));
  return gige_protocol::make_discovery_acknowledge(request.id, *record);
}

// FORCEIP is broadcast to all cameras. It is for the one with that MAC address, and refused while a client
// has control.
void control_server::force_ip(const command& request, outcome& result) const {
  const auto wanted = gige_protocol::parse_force_ip(request.payload);
  const auto own = gige_protocol::parse_discovery(memory_.bytes(standard::version, standard::identitySize));
  if (!wanted || wanted->mac != own->mac) {
    return;
  }
  if (controller_) {
    result.answer = refusal(request, status::access_denied);
  } else {
    result.address = *wanted;
  }
}

message control_server::read_registers(const command& request, const endpoint& from) const {
  const auto addresses = gige_protocol::parse_read_registers(request.payload);
  if (!addresses) {
    return refusal(request, status::invalid_header);
  }
  std::array<std::uint32_t, gige_protocol::mostRegistersRead> values{};
  std::size_t count = 0;
  status state = status::success;
  for (; count < addresses->size(); ++count) {
    std::array<std::uint8_t, wordSize> bytes{};
    state = read((*addresses)[count], bytes, from);
    if (is_error(state)) {
      break;
    }
    values[count] = gige_protocol::load<std::uint32_t>(bytes, 0);
  }
  return gige_protocol::make_register_values(request.id, std::span(values).first(count), state);
}

message control_server::read_memory(const command& request, const endpoint& from) const {
  const auto range = gige_protocol::parse_read_memory(request.payload);
  if (!range) {
    return refusal(request, status::invalid_parameter);
  }
  std::array<std::uint8_t, gige_protocol::largestMemoryBlock> room{};
  const auto bytes = std::span(room).first(range->count);
  const status state = read(range->address, bytes, from);
  return is_error(state) ? refusal(request, state)
                         : gige_protocol::make_memory(request.id, {range->address, bytes});
}

message control_server::write_registers(const command& request, const endpoint& from, camera_time now,
                                        outcome& result) {
  const auto writes = gige_protocol::parse_write_registers(request.payload);
  if (!writes) {
    return refusal(request, status::invalid_header);
  }
  std::uint16_t count = 0;
  status state = status::success;
  while (count < writes->size() && !is_error(state = write((*writes)[count], from, now, result))) {
    ++count;
  }
  return make_written(acknowledge_of(request.code), request.id, count, state);
}

message control_server::write_memory(const command& request, const endpoint& from, camera_time now,
                                     outcome& result) {
  const auto block = gige_protocol::parse_write_memory(request.payload);
  if (!block) {
    return refusal(request, status::invalid_header);
  }
  if (block->bytes.size() % wordSize != 0) {
    return refusal(request, status::bad_alignment);
  }
  std::uint16_t count = 0;
  status state = status::success;
  while (count < block->bytes.size() &&
         !is_error(
             state = write({block->address + count, gige_protocol::load<std::uint32_t>(block->bytes, count)},
                           from, now, result))) {
    count = static_cast<std::uint16_t>(count + wordSize);
  }
  return make_written(acknowledge_of(request.code), request.id, count, state);
}

status control_server::read(register_address at, std::span<std::uint8_t> to, const endpoint& from) const {
  const bool isExclusive = (memory_.word(standard::controlChannelPrivilege) & privilege::exclusive) != 0;
  if (isExclusive && controller_ != from && !names_controller(at)) {
    return status::access_denied;
  }
  return memory_.read(at, to);
}

status control_server::write(const register_write& wanted, const endpoint& from, camera_time now,
                             outcome& result) {
  if (wanted.address == standard::controlChannelPrivilege) {
    const status state = claim(wanted.value, from, result);
    lastHeard_ = controller_ == from ? now : lastHeard_;
    return state;
  }
  if (controller_ != from) {
    return status::access_denied;
  }
  const status state = memory_.may_write(wanted.address);
  return is_error(state) ? state : apply(wanted, now, result);
}

status control_server::apply(const register_write& wanted, camera_time now, outcome& result) {
  const auto value = adjusted(wanted, memory_);
  if (!value) {
    return status::invalid_parameter;
  }
  act(wanted, now, result);
  memory_.set_word(wanted.address, *value);
  memory_.set_word(features::payloadSize, static_cast<std::uint32_t>(read_settings(memory_).payload_size()));
  return status::success;
}

// The effects of a write beside the value of the register.
void control_server::act(const register_write& wanted, camera_time now, outcome& result) {
  switch (wanted.address) {
    case standard::timestampControl:
      control_clock(wanted.value, now);
      break;
    case standard::streamPacketSize:
      result.wantsTestPacket |= (wanted.value & packet_size::fireTestPacket) != 0;
      break;
    case features::acquisition:
      acquire(wanted.value != 0, result);
      break;
    case features::triggerSoftware:
      ++result.triggers;
      break;
    default:
      break;
  }
}

status control_server::claim(std::uint32_t wanted, const endpoint& from, outcome& result) {
  if (controller_ && controller_ != from) {
    return status::access_denied;
  }
  const std::uint32_t kind = wanted & (privilege::exclusive | privilege::control);
  if (kind != 0) {
    grant(from, kind);
  } else if (controller_) {
    release();
    result.isControlLost = true;
  }
  return status::success;
}

void control_server::acquire(bool wanted, outcome& result) {
  result.isStreamStarted = wanted && (!memory_.is_acquiring() || result.isStreamStarted);
  result.isStreamStopped |= !wanted && memory_.is_acquiring();
}

void control_server::control_clock(std::uint32_t wanted, camera_time now) {
  if ((wanted & gige_protocol::timestamp_control::latch) != 0) {
    const auto ticks = static_cast<std::uint64_t>((now - clockStart_).count());
    memory_.set_word(standard::timestampHigh, static_cast<std::uint32_t>(ticks >> 32U));
    memory_.set_word(standard::timestampLow, static_cast<std::uint32_t>(ticks));
  }
  if ((wanted & gige_protocol::timestamp_control::reset) != 0) {
    clockStart_ = now;
  }
}

void control_server::grant(const endpoint& to, std::uint32_t kind) {
  controller_ = to;
  memory_.set_word(standard::controlChannelPrivilege, kind);
  memory_.set_word(standard::primaryApplicationPort, to.port);
  memory_.set_word(standard::primaryApplicationIp, to.ip);
}

// The stream ends with control.
void control_server::release() {
  controller_.reset();
  for (const register_address each :
       {standard::controlChannelPrivilege, standard::primaryApplicationPort, standard::primaryApplicationIp,
        standard::streamPort, standard::streamDestination, features::acquisition}) {
    memory_.set_word(each, 0);
  }
  if (powerUp_ != nullptr) {
    memory_.copy_settings(*powerUp_);
  }
  if (isOccupied_) {
    grant(silentClient, privilege::control);
  }
}

}  // namespace gvcam
