#include "platform/gige_protocol/discovery.h"

#include <algorithm>

namespace gige_protocol {
namespace {

constexpr std::uint32_t macOffset = registers::macHigh + 2;

char printable(char character) {
  return character >= 0x20 && character <= 0x7e ? character : '?';
}

template <std::size_t room>
void load_text(byte_view bytes, std::uint32_t offset, fixed_text<room>& text) {
  const auto raw = bytes.subspan(offset, room);
  text = std::string_view(reinterpret_cast<const char*>(raw.data()), raw.size());
}

template <std::size_t room>
void store_text(const fixed_text<room>& text, std::span<std::uint8_t> bytes, std::uint32_t offset) {
  std::ranges::copy(text.view(), bytes.subspan(offset, room).begin());
}

}  // namespace

void clean_text(std::string_view text, std::span<char> room) {
  const std::string_view fitting = text.substr(0, std::min(text.find('\0'), room.size()));
  const auto end = std::ranges::transform(fitting, room.begin(), printable).out;
  std::fill(end, room.end(), '\0');
}

parsed<discovery_record> parse_discovery(byte_view payload) {
  if (payload.size() != registers::identitySize) {
    return refusal{"a discovery record that is not 248 bytes long"};
  }
  const auto word = [payload](std::uint32_t address) { return load<std::uint32_t>(payload, address); };
  discovery_record record;
  record.versionMajor = load<std::uint16_t>(payload, registers::version);
  record.versionMinor = load<std::uint16_t>(payload, registers::version + 2);
  record.deviceMode = word(registers::deviceMode);
  std::ranges::copy(payload.subspan(macOffset, record.mac.size()), record.mac.begin());
  record.supportedIpConfiguration = word(registers::supportedIpConfiguration);
  record.currentIpConfiguration = word(registers::currentIpConfiguration);
  record.ip = word(registers::currentIp);
  record.subnetMask = word(registers::currentSubnetMask);
  record.gateway = word(registers::currentGateway);
  load_text(payload, registers::manufacturerName, record.manufacturer);
  load_text(payload, registers::modelName, record.model);
  load_text(payload, registers::deviceVersion, record.deviceVersion);
  load_text(payload, registers::manufacturerInfo, record.manufacturerInfo);
  load_text(payload, registers::serialNumber, record.serial);
  load_text(payload, registers::userDefinedName, record.userName);
  return record;
}

void store_discovery(const discovery_record& record, std::span<std::uint8_t, registers::identitySize> bytes) {
  std::ranges::fill(bytes, std::uint8_t{0});
  store(bytes, registers::version, record.versionMajor);
  store(bytes, registers::version + 2, record.versionMinor);
  store(bytes, registers::deviceMode, record.deviceMode);
  std::ranges::copy(record.mac, bytes.begin() + macOffset);
  store(bytes, registers::supportedIpConfiguration, record.supportedIpConfiguration);
  store(bytes, registers::currentIpConfiguration, record.currentIpConfiguration);
  store(bytes, registers::currentIp, record.ip);
  store(bytes, registers::currentSubnetMask, record.subnetMask);
  store(bytes, registers::currentGateway, record.gateway);
  store_text(record.manufacturer, bytes, registers::manufacturerName);
  store_text(record.model, bytes, registers::modelName);
  store_text(record.deviceVersion, bytes, registers::deviceVersion);
  store_text(record.manufacturerInfo, bytes, registers::manufacturerInfo);
  store_text(record.serial, bytes, registers::serialNumber);
  store_text(record.userName, bytes, registers::userDefinedName);
}

}  // namespace gige_protocol
