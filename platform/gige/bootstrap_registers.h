// The bootstrap registers of a camera: those that GigE Vision defines, which need no description.
#ifndef PLATFORM_GIGE_BOOTSTRAP_REGISTERS_H
#define PLATFORM_GIGE_BOOTSTRAP_REGISTERS_H

#include <cstdint>
#include <string>

#include "platform/gige/description/camera_features.h"

namespace gige {

// Reads and writes through the register cache of the features. So a register whose value is known costs no
// command, and the features learn of each write. Under the camera's lock. Raises what a register_port does.
class bootstrap_registers {
 public:
  // `features` outlives this object. `camera` is the serial number, for log lines.
  bootstrap_registers(camera_features& features, std::string camera)
      : features_(features), camera_(std::move(camera)) {}

  std::uint32_t read(std::uint32_t address);
  // 0 for a register that the camera does not have. TimeoutException still leaves.
  std::uint32_t read_if_present(std::uint32_t address);
  // Reads from the camera what the camera itself may have changed.
  std::uint32_t read_again(std::uint32_t address);
  void write(std::uint32_t address, std::uint32_t value);
  // False when that fails; a log line then names the register as `what`.
  bool try_to_write(const char* what, std::uint32_t address, std::uint32_t value);

 private:
  camera_features& features_;
  const std::string camera_;
};

}  // namespace gige

#endif
