// A camera's registers as its description reaches them.
#ifndef PLATFORM_GIGE_DESCRIPTION_REGISTER_PORT_H
#define PLATFORM_GIGE_DESCRIPTION_REGISTER_PORT_H

#include <cstdint>
#include <span>

namespace gige {

// Bytes of the camera's memory, in the camera's order (most significant first, by the standard). Called under
// the owner's lock, by one thread at a time.
//
// An access that fails raises an exception of the GenICam tree, whose text says what was asked and why it
// failed: TimeoutException when the camera does not answer, is lost, or the waiting was cancelled;
// AccessException when the camera refuses; RuntimeException for every other status.
class register_port {
 public:
  register_port() = default;
  register_port(const register_port&) = delete;
  register_port& operator=(const register_port&) = delete;
  virtual ~register_port() = default;

  // Any address and any length: the implementation cuts and aligns as its protocol wants.
  virtual void read(std::uint64_t address, std::span<std::uint8_t> to) = 0;
  virtual void write(std::uint64_t address, std::span<const std::uint8_t> from) = 0;
};

}  // namespace gige

#endif
