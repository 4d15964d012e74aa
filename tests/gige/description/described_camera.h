// A camera that is some bytes in memory, and the text of descriptions for it.
#ifndef TESTS_GIGE_DESCRIPTION_DESCRIBED_CAMERA_H
#define TESTS_GIGE_DESCRIPTION_DESCRIBED_CAMERA_H

#include <cstdint>
#include <cstdio>
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
    record("read", address);
    for (auto& byte : to) {
      byte = memory[address++ % memory.size()];
    }
  }
  void write(std::uint64_t address, std::span<const std::uint8_t> from) override {
    record("write", address);
    for (std::size_t at = 0; at < from.size(); ++at) {
      memory[(address + at) % memory.size()] = from[at];
    }
    if (onWrite) {
      onWrite(address);
    }
  }

  // Changes a register, big endian, as the camera itself does.
  void put(std::uint64_t address, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      memory[address++] = static_cast<std::uint8_t>(value >> shift);
    }
  }
  // The commands since the last call: "read 100, write 104, ".
  std::string take() { return std::exchange(commands_, ""); }

  std::vector<std::uint8_t> memory = std::vector<std::uint8_t>(0x1000);
  bool isSilent = false;  // every command times out
  std::function<void(std::uint64_t)> onWrite;

 private:
  void record(const char* what, std::uint64_t address) {
    if (isSilent) {
      gev::raise<GenICam::TimeoutException>("the camera is silent");
    }
    char text[32];
    std::snprintf(text, sizeof text, "%s %llx, ", what, static_cast<unsigned long long>(address));
    commands_ += text;
  }

  std::string commands_;
};

inline std::string described(const std::string& nodes) {
  return "<RegisterDescription SchemaMajorVersion='1' SchemaMinorVersion='1' SchemaSubMinorVersion='0'>" +
         nodes + "<Port Name='Device'/></RegisterDescription>";
}
inline std::string node(const std::string& type, const std::string& name, const std::string& content) {
  return "<" + type + " Name='" + name + "'>" + content + "</" + type + ">";
}

}  // namespace description_test

#endif
