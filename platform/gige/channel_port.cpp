#include "platform/gige/channel_port.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "platform/gev/exceptions.h"
#include "platform/gige_protocol/bytes.h"

namespace gige {
namespace {

constexpr std::size_t wordSize = 4;

bool is_register(std::uint64_t address, std::size_t size) {
  return size == wordSize && address % wordSize == 0 && address <= UINT32_MAX;
}

// Turns the errors of a command into exceptions of the GenICam tree.
template <class Command>
void run_command(Command command) {
  using gige_protocol::status;
  try {
    command();
  } catch (const refused& error) {
    if (error.why() == status::access_denied || error.why() == status::write_protect) {
      gev::raise<GenICam::AccessException>(error.what());
    }
    gev::raise<GenICam::RuntimeException>(error.what());
  } catch (const not_answered& error) {
    gev::raise<GenICam::TimeoutException>(error.what());
  } catch (const camera_lost& error) {
    gev::raise<GenICam::TimeoutException>(error.what());
  } catch (const control_error& error) {
    gev::raise<GenICam::RuntimeException>(error.what());
  }
}

}  // namespace

void channel_port::read(std::uint64_t address, std::span<std::uint8_t> to) {
  run_command([&] { read_words(address, to); });
}

void channel_port::read_words(std::uint64_t address, std::span<std::uint8_t> to) {
  if (is_register(address, to.size())) {
    gige_protocol::store(to, 0, channel_.read_register(static_cast<std::uint32_t>(address)));
  } else {
    channel_.read_memory(address, to);
  }
}

void channel_port::write(std::uint64_t address, std::span<const std::uint8_t> from) {
  run_command([&] {
    const std::size_t before = address % wordSize;
    const std::size_t after = (wordSize - (before + from.size()) % wordSize) % wordSize;
    if (before == 0 && after == 0) {
      write_words(address, from);
      return;
    }
    std::vector<std::uint8_t> words(before + from.size() + after);
    read_words(address - before, words);
    std::copy(from.begin(), from.end(), words.begin() + static_cast<std::ptrdiff_t>(before));
    write_words(address - before, words);
  });
}

void channel_port::write_words(std::uint64_t address, std::span<const std::uint8_t> from) {
  if (is_register(address, from.size())) {
    channel_.write_register(static_cast<std::uint32_t>(address), gige_protocol::load<std::uint32_t>(from, 0));
  } else {
    channel_.write_memory(address, from);
  }
}

}  // namespace gige
