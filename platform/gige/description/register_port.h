// Access to a camera's registers, for its description.
#ifndef PLATFORM_GIGE_DESCRIPTION_REGISTER_PORT_H
#define PLATFORM_GIGE_DESCRIPTION_REGISTER_PORT_H

#include <cstdint>
#include <span>

namespace gige {

// Bytes of the camera's memory. Registers are big endian, by the standard. Called under the owner's lock, by
// one thread at a time.
//
// An access that fails raises an exception of the GenICam tree, whose text names the access and the reason:
// TimeoutException when the camera does not answer, is lost, or the wait was cancelled; AccessException when
// the camera denies it; RuntimeException for every other status.
class register_port {
 public:
  register_port() = default;
  register_port(const register_port&) = delete;
  register_port& operator=(const register_port&) = delete;
  virtual ~register_port() = default;

  // Any address and length. The implementation splits and aligns them for its protocol.
  virtual void read(std::uint64_t address, std::span<std::uint8_t> to) = 0;
  virtual void write(std::uint64_t address, std::span<const std::uint8_t> from) = 0;
};

}  // namespace gige

#endif
