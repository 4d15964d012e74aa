#include "platform/gige_protocol/gvcp.h"

#include <algorithm>
#include <array>

#include "platform/gige_protocol/names.h"

namespace gige_protocol {
namespace {

constexpr named<command_code> commandNames[] = {
    {command_code::discovery, "DISCOVERY"},        {command_code::force_ip, "FORCEIP"},
    {command_code::packet_resend, "PACKETRESEND"}, {command_code::read_register, "READREG"},
    {command_code::write_register, "WRITEREG"},    {command_code::read_memory, "READMEM"},
    {command_code::write_memory, "WRITEMEM"},      {command_code::event, "EVENT"},
    {command_code::event_data, "EVENTDATA"},       {command_code::action, "ACTION"},
};

constexpr std::uint8_t commandKey = 0x42;
constexpr std::size_t wordSize = 4;

// Reserved bytes in front of the fields of FORCEIP.
constexpr std::size_t macOffset = 2;
constexpr std::size_t ipOffset = 20;
constexpr std::size_t maskOffset = 36;
constexpr std::size_t gatewayOffset = 52;
constexpr std::size_t forceIpSize = 56;

constexpr std::size_t standardResendSize = 12;
constexpr std::size_t extendedResendSize = 20;

// What is wrong with the size of a datagram; nullptr when nothing is. Command and acknowledge have the length
// of their payload at the same place.
const char* wrong_size(byte_view datagram) {
  constexpr std::size_t lengthOffset = 4;
  if (datagram.size() < messageHeaderSize) {
    return "a control message shorter than its header";
  }
  if (datagram.size() > largestMessage) {
    return "a control message larger than 548 bytes";
  }
  if (datagram.size() != messageHeaderSize + load<std::uint16_t>(datagram, lengthOffset)) {
    return "a control message whose length field contradicts its size";
  }
  return nullptr;
}

// Heads are put with the payload's final length, so that nothing has to be changed afterwards.
message begin_command(command_code code, std::uint8_t flags, std::uint16_t id, std::size_t length) {
  message result;
  result.put(commandKey);
  result.put(flags);
  result.put(static_cast<std::uint16_t>(code));
  result.put(static_cast<std::uint16_t>(length));
  result.put(id);
  return result;
}

message begin_acknowledge(acknowledge_code code, std::uint16_t id, std::size_t length, status outcome) {
  message result;
  result.put(static_cast<std::uint16_t>(outcome));
  result.put(static_cast<std::uint16_t>(code));
  result.put(static_cast<std::uint16_t>(length));
  result.put(id);
  return result;
}

message& put_words(message& result, std::span<const std::uint32_t> words) {
  for (const std::uint32_t word : words) {
    result.put(word);
  }
  return result;
}

message& put_block(message& result, const memory_block& block) {
  result.put(block.address);
  result.put(block.bytes);
  return result;
}

std::uint8_t broadcast_flags(bool broadcastAcknowledge) {
  return command_flags::acknowledgeRequired |
         (broadcastAcknowledge ? command_flags::broadcastAcknowledge : std::uint8_t{0});
}

// The half word behind two reserved bytes that is all that some acknowledges hold.
parsed<std::uint16_t> parse_half_word(byte_view payload, const char* wrongSize) {
  if (payload.size() != wordSize) {
    return refusal{wrongSize};
  }
  return load<std::uint16_t>(payload, 2);
}

}  // namespace

const char* name_of(command_code code) {
  return look_up(commandNames, code, "unknown command");
}

parsed<command> parse_command(byte_view datagram) {
  if (const char* const reason = wrong_size(datagram)) {
    return refusal{reason};
  }
  if (datagram[0] != commandKey) {
    return refusal{"a control message without the key of a command"};
  }
  const command result{.code = static_cast<command_code>(load<std::uint16_t>(datagram, 2)),
                       .flags = datagram[1],
                       .id = load<std::uint16_t>(datagram, 6),
                       .payload = datagram.subspan(messageHeaderSize)};
  if (result.id == 0) {
    return refusal{"a command with the request id 0"};
  }
  return result;
}

parsed<acknowledge> parse_acknowledge(byte_view datagram) {
  if (const char* const reason = wrong_size(datagram)) {
    return refusal{reason};
  }
  const acknowledge result{.result = static_cast<status>(load<std::uint16_t>(datagram, 0)),
                           .code = static_cast<acknowledge_code>(load<std::uint16_t>(datagram, 2)),
                           .id = load<std::uint16_t>(datagram, 6),
                           .payload = datagram.subspan(messageHeaderSize)};
  if (result.id == 0) {
    return refusal{"an acknowledge of the request id 0"};
  }
  return result;
}

message make_discovery(std::uint16_t id, bool broadcastAcknowledge) {
  return begin_command(command_code::discovery, broadcast_flags(broadcastAcknowledge), id, 0);
}

message make_discovery_acknowledge(std::uint16_t id, const discovery_record& record) {
  std::array<std::uint8_t, registers::identitySize> bytes{};
  store_discovery(record, bytes);
  message result = begin_acknowledge(acknowledge_code::discovery, id, bytes.size(), status::success);
  result.put(bytes);
  return result;
}

parsed<forced_ip> parse_force_ip(byte_view payload) {
  if (payload.size() != forceIpSize) {
    return refusal{"a FORCEIP whose payload is not 56 bytes long"};
  }
  forced_ip result;
  std::ranges::copy(payload.subspan(macOffset, result.mac.size()), result.mac.begin());
  result.ip = load<std::uint32_t>(payload, ipOffset);
  result.subnetMask = load<std::uint32_t>(payload, maskOffset);
  result.gateway = load<std::uint32_t>(payload, gatewayOffset);
  return result;
}

message make_force_ip(std::uint16_t id, const forced_ip& address, bool broadcastAcknowledge) {
  message result =
      begin_command(command_code::force_ip, broadcast_flags(broadcastAcknowledge), id, forceIpSize);
  result.put_zeros(macOffset);
  result.put(address.mac);
  result.put_zeros(ipOffset - macOffset - address.mac.size());
  result.put(address.ip);
  result.put_zeros(maskOffset - ipOffset - wordSize);
  result.put(address.subnetMask);
  result.put_zeros(gatewayOffset - maskOffset - wordSize);
  result.put(address.gateway);
  return result;
}

parsed<resend_request> parse_packet_resend(const command& request) {
  const byte_view payload = request.payload;
  const id_mode ids =
      (request.flags & command_flags::extendedIds) != 0 ? id_mode::extended : id_mode::standard;
  if (payload.size() != (ids == id_mode::standard ? standardResendSize : extendedResendSize)) {
    return refusal{"a PACKETRESEND whose payload is not 12 bytes long, or 20 with extended ids"};
  }
  const resend_request result{.streamChannel = load<std::uint16_t>(payload, 0),
                              .ids = ids,
                              .blockId = ids == id_mode::standard ? load<std::uint16_t>(payload, 2)
                                                                  : load<std::uint64_t>(payload, 12),
                              .firstPacket = load<std::uint32_t>(payload, 4) & largest_packet_id(ids),
                              .lastPacket = load<std::uint32_t>(payload, 8) & largest_packet_id(ids)};
  if (result.blockId == 0) {
    return refusal{"a PACKETRESEND for the block id 0"};
  }
  if (result.firstPacket > result.lastPacket) {
    return refusal{"a PACKETRESEND whose first packet is behind its last one"};
  }
  return result;
}

message make_packet_resend(std::uint16_t id, const resend_request& request) {
  const bool standard = request.ids == id_mode::standard;
  message result =
      begin_command(command_code::packet_resend, standard ? std::uint8_t{0} : command_flags::extendedIds, id,
                    standard ? standardResendSize : extendedResendSize);
  result.put(request.streamChannel);
  result.put(standard ? static_cast<std::uint16_t>(request.blockId) : std::uint16_t{0});
  result.put(request.firstPacket & largest_packet_id(request.ids));
  result.put(request.lastPacket & largest_packet_id(request.ids));
  if (!standard) {
    result.put(request.blockId);
  }
  return result;
}

parsed<word_list> parse_read_registers(byte_view payload) {
  if (payload.empty() || payload.size() % wordSize != 0) {
    return refusal{"a READREG whose payload is not one address of 4 bytes or several"};
  }
  return word_list(payload);
}

message make_read_registers(std::uint16_t id, std::span<const std::uint32_t> addresses) {
  message result = begin_command(command_code::read_register, command_flags::acknowledgeRequired, id,
                                 addresses.size_bytes());
  return put_words(result, addresses);
}

parsed<word_list> parse_register_values(byte_view payload) {
  if (payload.size() % wordSize != 0) {
    return refusal{"a READREG acknowledge whose payload is not made of values of 4 bytes"};
  }
  return word_list(payload);
}

message make_register_values(std::uint16_t id, std::span<const std::uint32_t> values, status result) {
  message built = begin_acknowledge(acknowledge_code::read_register, id, values.size_bytes(), result);
  return put_words(built, values);
}

parsed<register_write_list> parse_write_registers(byte_view payload) {
  if (payload.empty() || payload.size() % (2 * wordSize) != 0) {
    return refusal{"a WRITEREG whose payload is not one address and value of 4 bytes each or several"};
  }
  return register_write_list(payload);
}

message make_write_registers(std::uint16_t id, std::span<const register_write> writes) {
  message result = begin_command(command_code::write_register, command_flags::acknowledgeRequired, id,
                                 writes.size() * 2 * wordSize);
  for (const register_write& write : writes) {
    result.put(write.address);
    result.put(write.value);
  }
  return result;
}

parsed<memory_range> parse_read_memory(byte_view payload) {
  if (payload.size() != 2 * wordSize) {
    return refusal{"a READMEM whose payload is not 8 bytes long"};
  }
  const memory_range result{.address = load<std::uint32_t>(payload, 0),
                            .count = load<std::uint16_t>(payload, 6)};
  if (result.count == 0 || result.count > largestMemoryBlock) {
    return refusal{"a READMEM that does not ask for 1 to 536 bytes"};
  }
  return result;
}

message make_read_memory(std::uint16_t id, memory_range range) {
  message result =
      begin_command(command_code::read_memory, command_flags::acknowledgeRequired, id, 2 * wordSize);
  result.put(range.address);
  result.put_zeros(2);
  result.put(range.count);
  return result;
}

parsed<memory_block> parse_memory(byte_view payload) {
  if (payload.size() < wordSize) {
    return refusal{"a READMEM acknowledge without an address"};
  }
  return memory_block{.address = load<std::uint32_t>(payload, 0), .bytes = payload.subspan(wordSize)};
}

message make_memory(std::uint16_t id, const memory_block& block) {
  message result =
      begin_acknowledge(acknowledge_code::read_memory, id, wordSize + block.bytes.size(), status::success);
  return put_block(result, block);
}

parsed<memory_block> parse_write_memory(byte_view payload) {
  if (payload.size() <= wordSize) {
    return refusal{"a WRITEMEM without an address and bytes"};
  }
  return memory_block{.address = load<std::uint32_t>(payload, 0), .bytes = payload.subspan(wordSize)};
}

message make_write_memory(std::uint16_t id, const memory_block& block) {
  message result = begin_command(command_code::write_memory, command_flags::acknowledgeRequired, id,
                                 wordSize + block.bytes.size());
  return put_block(result, block);
}

parsed<std::uint16_t> parse_written(byte_view payload) {
  return parse_half_word(payload, "an acknowledge of a write whose payload is not 4 bytes long");
}

message make_written(acknowledge_code code, std::uint16_t id, std::uint16_t count, status result) {
  message built = begin_acknowledge(code, id, wordSize, result);
  built.put_zeros(2);
  built.put(count);
  return built;
}

parsed<std::uint16_t> parse_pending(byte_view payload) {
  return parse_half_word(payload, "a PENDING_ACK whose payload is not 4 bytes long");
}

message make_pending(std::uint16_t id, std::uint16_t milliseconds) {
  return make_written(acknowledge_code::pending, id, milliseconds);
}

message make_acknowledge(acknowledge_code code, std::uint16_t id, status result) {
  return begin_acknowledge(code, id, 0, result);
}

}  // namespace gige_protocol
