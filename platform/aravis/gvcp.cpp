#include "platform/aravis/gvcp.h"

namespace gige::gvcp {
namespace {

constexpr std::uint8_t commandKey = 0x42;
constexpr std::uint8_t wantsAnswer = 0x01;
constexpr std::uint8_t answerMayBeBroadcast = 0x10;
constexpr std::size_t headerSize = 8;

constexpr std::uint16_t discoveryAnswer = 0x0003;
constexpr std::uint16_t readAnswer = 0x0085;
constexpr std::uint16_t pendingAnswer = 0x0089;

std::uint16_t short_at(std::span<const std::uint8_t> data, std::size_t offset) {
  return static_cast<std::uint16_t>(data[offset] << 8U | data[offset + 1]);
}

answer::kind kind_of(std::uint16_t code) {
  switch (code) {
    case discoveryAnswer:
      return answer::kind::discovery;
    case readAnswer:
      return answer::kind::read;
    case pendingAnswer:
      return answer::kind::pending;
    default:
      return answer::kind::other;
  }
}

}  // namespace

std::array<std::uint8_t, 8> discovery_command() {
  return {commandKey, wantsAnswer | answerMayBeBroadcast, 0x00, 0x02, 0, 0, 0xff, 0xff};
}

std::array<std::uint8_t, 16> read_command(std::uint32_t address, std::uint16_t id) {
  const auto byte = [](std::uint32_t number, unsigned place) {
    return static_cast<std::uint8_t>(number >> (8 * place));
  };
  return {commandKey,
          wantsAnswer,
          0x00,
          0x84,
          0,
          8,
          byte(id, 1),
          byte(id, 0),
          byte(address, 3),
          byte(address, 2),
          byte(address, 1),
          byte(address, 0),
          0,
          0,
          0,
          4};
}

std::optional<answer> parse(std::span<const std::uint8_t> message) {
  if (message.size() < headerSize) {
    return std::nullopt;
  }
  const std::size_t length = short_at(message, 4);
  if (message.size() < headerSize + length) {
    return std::nullopt;
  }
  return answer{.what = kind_of(short_at(message, 2)),
                .id = short_at(message, 6),
                .status = short_at(message, 0),
                .data = message.subspan(headerSize, length)};
}

std::uint32_t number_at(std::span<const std::uint8_t> data, std::size_t offset) {
  return static_cast<std::uint32_t>(short_at(data, offset)) << 16U | short_at(data, offset + 2);
}

}  // namespace gige::gvcp
