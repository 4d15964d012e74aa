// A camera's registers as a test has them: bytes in memory, and what was asked of them.
#ifndef TESTS_GIGE_DESCRIPTION_MEMORY_PORT_H
#define TESTS_GIGE_DESCRIPTION_MEMORY_PORT_H

#include <algorithm>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/gev/exceptions.h"
#include "platform/gige/description/register_port.h"

namespace description_test {

class memory_port final : public gige::register_port {
 public:
  void read(std::uint64_t address, std::span<std::uint8_t> to) override {
    note("read ", address);
    for (std::size_t at = 0; at < to.size(); ++at) {
      to[at] = memory[(address + at) % memory.size()];
    }
  }
  void write(std::uint64_t address, std::span<const std::uint8_t> from) override {
    note("write ", address);
    for (std::size_t at = 0; at < from.size(); ++at) {
      memory[(address + at) % memory.size()] = from[at];
    }
    if (onWrite) {
      onWrite(address);
    }
  }

  // As the camera itself changes a register: big endian, nobody is told.
  void put(std::uint64_t address, std::uint32_t value) {
    for (std::size_t at = 0; at < sizeof value; ++at) {
      memory[address + at] = static_cast<std::uint8_t>(value >> (8 * (3 - at)));
    }
  }

  // The commands since this was asked last: "read 100, write 104".
  std::string take() { return std::exchange(commands, ""); }

  std::vector<std::uint8_t> memory = std::vector<std::uint8_t>(0x1000);
  bool silent = false;  // every command times out
  std::function<void(std::uint64_t)> onWrite;
  std::string commands;

 private:
  void note(const char* what, std::uint64_t address) {
    if (silent) {
      gev::raise<GenICam::TimeoutException>("the camera is silent");
    }
    static constexpr const char* digits = "0123456789abcdef";
    std::string number;
    do {
      number.insert(number.begin(), digits[address % 16]);
      address /= 16;
    } while (address != 0);
    commands += (commands.empty() ? "" : ", ") + std::string(what) + number;
  }
};

}  // namespace description_test

#endif
