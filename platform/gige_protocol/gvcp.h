// GVCP, the control protocol of GigE Vision: commands of a client, acknowledges of a camera, one UDP datagram
// each.
//
// A datagram is read in two steps. parse_command or parse_acknowledge checks the header and says what it is;
// the parser of that message then reads the payload. A datagram is written in one step, by the make_...
// function of that message. Nothing here keeps state, so everything may be called from any thread. Parsers
// refuse, they do not raise. Writers raise std::length_error for more registers or bytes than one message
// holds, which is the caller's mistake.
#ifndef PLATFORM_GIGE_PROTOCOL_GVCP_H
#define PLATFORM_GIGE_PROTOCOL_GVCP_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/gige_protocol/bytes.h"
#include "platform/gige_protocol/discovery.h"
#include "platform/gige_protocol/gvsp.h"
#include "platform/gige_protocol/parsed.h"
#include "platform/gige_protocol/status.h"

namespace gige_protocol {

// UDP port of every camera.
constexpr std::uint16_t controlPort = 3956;

// The standard limits the IP datagram to 576 bytes; the IP and UDP headers take 28 of them.
constexpr std::size_t largestMessage = 576 - ipHeaderSize - udpHeaderSize;
constexpr std::size_t messageHeaderSize = 8;
constexpr std::size_t largestMessagePayload = largestMessage - messageHeaderSize;

// What one message holds at most: registers of a READREG, registers of a WRITEREG, bytes of a READMEM or
// WRITEMEM.
constexpr std::size_t mostRegistersRead = largestMessagePayload / 4;
constexpr std::size_t mostRegistersWritten = largestMessagePayload / 8;
constexpr std::size_t largestMemoryBlock = largestMessagePayload - 4;

using message = byte_buffer<largestMessage>;

// Any 16-bit number may come from the wire; these are the ones that have a meaning. EVENT, EVENTDATA and
// ACTION are known by name only: their payloads are not read.
enum class command_code : std::uint16_t {
  discovery = 0x0002,
  force_ip = 0x0004,
  packet_resend = 0x0040,
  read_register = 0x0080,
  write_register = 0x0082,
  read_memory = 0x0084,
  write_memory = 0x0086,
  event = 0x00c0,
  event_data = 0x00c2,
  action = 0x0100,
};

enum class acknowledge_code : std::uint16_t {
  discovery = 0x0003,
  force_ip = 0x0005,
  read_register = 0x0081,
  write_register = 0x0083,
  read_memory = 0x0085,
  write_memory = 0x0087,
  pending = 0x0089,  // the command takes longer; its own acknowledge follows
  event = 0x00c1,
  event_data = 0x00c3,
  action = 0x0101,
};

// The standard's name, as "READREG"; "unknown command" for a number without one. Never nullptr.
const char* name_of(command_code code);

// The acknowledge that answers a command, any number included. PACKETRESEND is answered by packets only.
constexpr acknowledge_code acknowledge_of(command_code code) {
  return static_cast<acknowledge_code>(static_cast<std::uint16_t>(code) + 1U);
}

// Flags of a command's header. Two of them share a bit and mean what the command makes of it.
namespace command_flags {
constexpr std::uint8_t acknowledgeRequired = 0x01;
constexpr std::uint8_t broadcastAcknowledge = 0x10;  // DISCOVERY, FORCEIP: the answer may be broadcast
constexpr std::uint8_t extendedIds = 0x10;           // PACKETRESEND: 64-bit block id, 32-bit packet ids
}  // namespace command_flags

// A command whose header was read.
struct command {
  command_code code{};
  std::uint8_t flags = 0;
  std::uint16_t id = 0;  // of the request, chosen by the client, never 0
  byte_view payload;     // into the datagram

  constexpr bool wants_acknowledge() const { return (flags & command_flags::acknowledgeRequired) != 0; }
};

// An acknowledge whose header was read.
struct acknowledge {
  status result{};
  acknowledge_code code{};
  std::uint16_t id = 0;  // of the request that it answers
  byte_view payload;     // into the datagram; empty in most failures
};

// Read the header of a datagram. Refuse a datagram whose size is not the one that it states, that is larger
// than the standard allows, that lacks the key of a command, or whose request id is 0. Unknown codes pass,
// since a camera must answer them.
parsed<command> parse_command(byte_view datagram);
parsed<acknowledge> parse_acknowledge(byte_view datagram);

// The request id after that one: 0 is never used.
constexpr std::uint16_t next_request_id(std::uint16_t id) {
  return id == 0xffff ? std::uint16_t{1} : static_cast<std::uint16_t>(id + 1);
}

// DISCOVERY: asks all cameras to identify themselves. It has no payload; discovery.h has that of its
// acknowledge.
message make_discovery(std::uint16_t id, bool broadcastAcknowledge);
message make_discovery_acknowledge(std::uint16_t id, const discovery_record& record);

// FORCEIP: has the camera with that MAC address take an IP address at once, until its next start. An address
// of 0 has it start its own search for one again. The camera's acknowledge has no payload.
struct forced_ip {
  mac_address mac{};
  std::uint32_t ip = 0;
  std::uint32_t subnetMask = 0;
  std::uint32_t gateway = 0;

  friend bool operator==(const forced_ip&, const forced_ip&) = default;
};
parsed<forced_ip> parse_force_ip(byte_view payload);
message make_force_ip(std::uint16_t id, const forced_ip& address, bool broadcastAcknowledge);

// PACKETRESEND: asks for packets of one frame once more. It is never acknowledged. Which form it has is in
// the command's flags, so its parser takes the whole command. Refuses a first packet behind the last one, and
// block id 0.
struct resend_request {
  std::uint16_t streamChannel = 0;
  id_mode ids = id_mode::standard;
  std::uint64_t blockId = 0;
  std::uint32_t firstPacket = 0;
  std::uint32_t lastPacket = 0;  // included

  friend bool operator==(const resend_request&, const resend_request&) = default;
};
parsed<resend_request> parse_packet_resend(const command& request);
message make_packet_resend(std::uint16_t id, const resend_request& request);

// Numbers one behind the other in a payload: the addresses of a READREG, or the values of its acknowledge.
class word_list {
 public:
  explicit word_list(byte_view words) : words_(words) {}  // a whole number of 4-byte words
  std::size_t size() const { return words_.size() / 4; }
  std::uint32_t operator[](std::size_t place) const { return load<std::uint32_t>(words_, 4 * place); }

 private:
  byte_view words_;  // into the datagram
};

// One register of a WRITEREG.
struct register_write {
  std::uint32_t address = 0;
  std::uint32_t value = 0;

  friend bool operator==(const register_write&, const register_write&) = default;
};
class register_write_list {
 public:
  explicit register_write_list(byte_view words) : words_(words) {}  // pairs of words
  std::size_t size() const { return words_.size() / 2; }
  register_write operator[](std::size_t place) const { return {words_[2 * place], words_[2 * place + 1]}; }

 private:
  word_list words_;
};

// READREG: one register or several. The acknowledge holds their values in the same order, and, with the
// status of a failure, those in front of the register that failed. Addresses are not judged. Both refuse a
// payload that is no whole number of words, and the command an empty one.
parsed<word_list> parse_read_registers(byte_view payload);
message make_read_registers(std::uint16_t id, std::span<const std::uint32_t> addresses);
parsed<word_list> parse_register_values(byte_view payload);
message make_register_values(std::uint16_t id, std::span<const std::uint32_t> values,
                             status result = status::success);

// WRITEREG: one register or several, written in that order up to the first that fails.
parsed<register_write_list> parse_write_registers(byte_view payload);
message make_write_registers(std::uint16_t id, std::span<const register_write> writes);

// READMEM: `count` bytes from an address on. The standard wants both to be multiples of 4, which is not
// judged here, so that a camera can answer "bad alignment". Refuses a count of 0, and one that no acknowledge
// holds.
struct memory_range {
  std::uint32_t address = 0;
  std::uint16_t count = 0;  // bytes

  friend bool operator==(const memory_range&, const memory_range&) = default;
};
parsed<memory_range> parse_read_memory(byte_view payload);
message make_read_memory(std::uint16_t id, memory_range range);

// Bytes and where they are: the acknowledge of READMEM, and WRITEMEM. Both refuse a payload without an
// address, and the command one without bytes.
struct memory_block {
  std::uint32_t address = 0;
  byte_view bytes;  // into the datagram, or whatever they are written from
};
parsed<memory_block> parse_memory(byte_view payload);
message make_memory(std::uint16_t id, const memory_block& block);
parsed<memory_block> parse_write_memory(byte_view payload);
message make_write_memory(std::uint16_t id, const memory_block& block);

// The acknowledge of WRITEREG and WRITEMEM: how many registers, or bytes, were written before the first that
// failed.
parsed<std::uint16_t> parse_written(byte_view payload);
message make_written(acknowledge_code code, std::uint16_t id, std::uint16_t count,
                     status result = status::success);

// PENDING_ACK: the camera is done within this time, milliseconds.
parsed<std::uint16_t> parse_pending(byte_view payload);
message make_pending(std::uint16_t id, std::uint16_t milliseconds);

// An acknowledge without a payload: a command that failed, or FORCEIP done.
message make_acknowledge(acknowledge_code code, std::uint16_t id, status result);

}  // namespace gige_protocol

#endif
