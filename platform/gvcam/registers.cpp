#include "platform/gvcam/registers.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>

namespace gvcam {
namespace {

using gige_protocol::status;
namespace standard = gige_protocol::registers;

enum class rule : std::uint8_t {
  read_only,
  writable,
  locked,  // writable unless frames are sent
};

struct register_range {
  register_address first;
  register_address size;  // bytes
  rule access;
};

// All registers, by address. The space behind the features is free for the registers of a description other
// than the built-in one.
constexpr register_address featuresEnd = features::pulseDurationUs + 4 * wordSize;
constexpr std::array ranges = {
    register_range{standard::version, standard::userDefinedName, rule::read_only},
    register_range{standard::userDefinedName, standard::userNameSize, rule::writable},
    register_range{standard::firstUrl, 2 * standard::urlSize, rule::read_only},
    register_range{standard::interfaceCount, wordSize, rule::read_only},
    register_range{standard::messageChannelCount, 2 * wordSize, rule::read_only},
    register_range{standard::gvspCapability, 3 * wordSize, rule::read_only},
    register_range{standard::heartbeatTimeout, wordSize, rule::writable},
    register_range{standard::timestampFrequencyHigh, numberSize, rule::read_only},
    register_range{standard::timestampControl, wordSize, rule::writable},
    register_range{standard::timestampHigh, numberSize, rule::read_only},
    register_range{standard::discoveryAcknowledgeDelay, wordSize, rule::read_only},
    register_range{standard::gvcpConfiguration, wordSize, rule::writable},
    register_range{standard::pendingTimeout, wordSize, rule::read_only},
    register_range{standard::gvspConfiguration, wordSize, rule::locked},
    register_range{standard::controlChannelPrivilege, wordSize, rule::writable},
    register_range{standard::primaryApplicationPort, wordSize, rule::read_only},
    register_range{standard::primaryApplicationIp, wordSize, rule::read_only},
    register_range{standard::streamPort, wordSize, rule::writable},
    register_range{standard::streamPacketSize, wordSize, rule::locked},
    register_range{standard::streamPacketDelay, wordSize, rule::writable},
    register_range{standard::streamDestination, wordSize, rule::writable},
    register_range{standard::streamSourcePort, 2 * wordSize, rule::read_only},
    register_range{standard::streamConfiguration, wordSize, rule::locked},
    register_range{features::gain, features::temperature - features::gain, rule::writable},
    register_range{features::temperature, 2 * numberSize, rule::read_only},
    register_range{features::acquisitionFrameRate, features::sensorWidth - features::acquisitionFrameRate,
                   rule::writable},
    register_range{features::sensorWidth, 2 * wordSize, rule::read_only},
    register_range{features::pixelFormat, features::payloadSize - features::pixelFormat, rule::locked},
    register_range{features::payloadSize, wordSize, rule::read_only},
    register_range{features::acquisitionMode, features::chunkModeActive - features::acquisitionMode,
                   rule::writable},
    register_range{features::chunkModeActive, wordSize, rule::locked},
    register_range{features::chunkSelector, wordSize, rule::writable},
    register_range{features::chunkEnable, 10 * wordSize, rule::locked},
    register_range{features::lineSelector, featuresEnd - features::lineSelector, rule::writable},
    register_range{featuresEnd, descriptionAddress - featuresEnd, rule::writable},
    register_range{descriptionAddress, UINT32_MAX - descriptionAddress, rule::read_only},
};

const register_range* range_of(register_address at) {
  const auto* const found = std::find_if(ranges.begin(), ranges.end(),
                                         [&](const auto& each) { return at - each.first < each.size; });
  return found == ranges.end() ? nullptr : found;
}

bool is_aligned(register_address at) {
  return at % wordSize == 0;
}

}  // namespace

register_memory::register_memory(std::string_view name, std::string_view description)
    : memory_(descriptionAddress + (description.size() + wordSize - 1) / wordSize * wordSize) {
  std::copy(description.begin(), description.end(), memory_.begin() + descriptionAddress);
  std::array<char, standard::urlSize> url{};
  std::snprintf(url.data(), url.size(), "Local:%.*s;%x;%zx",
                static_cast<int>(std::min<std::size_t>(name.size(), 255)), name.data(), descriptionAddress,
                description.size());
  set_text(standard::firstUrl, standard::urlSize, url.data());
}

status register_memory::read(register_address from, std::span<std::uint8_t> to) const {
  if (!is_aligned(from) || to.size() % wordSize != 0) {
    return status::bad_alignment;
  }
  if (from >= memory_.size() || to.size() > memory_.size() - from) {
    return status::invalid_address;
  }
  for (register_address at = from; at < from + to.size(); at += wordSize) {
    if (range_of(at) == nullptr) {
      return status::invalid_address;
    }
  }
  std::ranges::copy(bytes(from, to.size()), to.begin());
  return status::success;
}

status register_memory::may_write(register_address at) const {
  if (!is_aligned(at)) {
    return status::bad_alignment;
  }
  const register_range* const range = range_of(at);
  if (range == nullptr || at >= memory_.size()) {
    return status::invalid_address;
  }
  if (range->access == rule::read_only) {
    return status::write_protect;
  }
  return range->access == rule::locked && is_acquiring() ? status::access_denied : status::success;
}

std::uint32_t register_memory::word(register_address at) const {
  return gige_protocol::load<std::uint32_t>(memory_, at);
}

double register_memory::number(register_address at) const {
  return std::bit_cast<double>(gige_protocol::load<std::uint64_t>(memory_, at));
}

void register_memory::set_word(register_address at, std::uint32_t value) {
  gige_protocol::store(std::span(memory_), at, value);
}

void register_memory::set_number(register_address at, double value) {
  gige_protocol::store(std::span(memory_), at, std::bit_cast<std::uint64_t>(value));
}

void register_memory::set_text(register_address at, std::size_t size, std::string_view text) {
  const auto room = std::span(memory_).subspan(at, size);
  std::ranges::fill(room, std::uint8_t{0});
  std::copy_n(text.begin(), std::min(text.size(), size - 1), room.begin());
}

gige_protocol::byte_view register_memory::bytes(register_address at, std::size_t size) const {
  return gige_protocol::byte_view(memory_).subspan(at, size);
}

void register_memory::copy_settings(const register_memory& from) {
  for (const register_range& each : ranges) {
    if (each.access != rule::read_only && each.first != standard::userDefinedName) {
      std::ranges::copy(from.bytes(each.first, each.size), memory_.begin() + each.first);
    }
  }
  set_word(features::payloadSize, from.word(features::payloadSize));
}

}  // namespace gvcam
