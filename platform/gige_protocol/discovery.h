// The record by which a camera introduces itself: its answer to DISCOVERY, and the first registers of its
// memory.
#ifndef PLATFORM_GIGE_PROTOCOL_DISCOVERY_H
#define PLATFORM_GIGE_PROTOCOL_DISCOVERY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/gige_protocol/bytes.h"
#include "platform/gige_protocol/parsed.h"
#include "platform/gige_protocol/registers.h"

namespace gige_protocol {

// In the order in which it is written: first byte first.
using mac_address = std::array<std::uint8_t, 6>;

// Puts a text into fixed room, so that it can be printed anywhere: it ends at the first NUL or with the room,
// and each byte that is no printable ASCII character (control characters, escape sequences, anything beyond
// 0x7e) becomes a '?'. What is left of the room is filled with NULs.
void clean_text(std::string_view text, std::span<char> room);

// A text of at most `room` bytes that is always printable.
template <std::size_t room>
class fixed_text {
 public:
  fixed_text() = default;
  fixed_text(std::string_view text) { clean_text(text, characters_); }

  std::string_view view() const {  // as long as the text lives
    return std::string_view(characters_.data(), room).substr(0, end());
  }
  friend bool operator==(const fixed_text&, const fixed_text&) = default;

 private:
  std::size_t end() const { return std::string_view(characters_.data(), room).find('\0'); }

  std::array<char, room> characters_{};
};

// Addresses are numbers: 192.168.1.2 is 0xc0a80102.
struct discovery_record {
  std::uint16_t versionMajor = 0;  // of GigE Vision
  std::uint16_t versionMinor = 0;
  std::uint32_t deviceMode = 0;  // bits of device_mode
  mac_address mac{};
  std::uint32_t supportedIpConfiguration = 0;  // bits of ip_configuration
  std::uint32_t currentIpConfiguration = 0;
  std::uint32_t ip = 0;
  std::uint32_t subnetMask = 0;
  std::uint32_t gateway = 0;
  fixed_text<registers::nameSize> manufacturer;
  fixed_text<registers::nameSize> model;
  fixed_text<registers::nameSize> deviceVersion;
  fixed_text<registers::infoSize> manufacturerInfo;
  fixed_text<registers::serialSize> serial;
  fixed_text<registers::userNameSize> userName;

  friend bool operator==(const discovery_record&, const discovery_record&) = default;
};

// Reads the payload of a DISCOVERY acknowledge. Refuses any size but that of a record. The contents are not
// checked: whether the addresses are the sender's is for the caller to decide.
parsed<discovery_record> parse_discovery(byte_view payload);

// Writes the record as a payload, and as a camera's registers from address 0 on.
void store_discovery(const discovery_record& record, std::span<std::uint8_t, registers::identitySize> bytes);

}  // namespace gige_protocol

#endif
