// A camera's registers for its description, over the control channel.
#ifndef PLATFORM_GIGE_CHANNEL_PORT_H
#define PLATFORM_GIGE_CHANNEL_PORT_H

#include "platform/gige/control/control_channel.h"
#include "platform/gige/description/register_port.h"

namespace gige {

// Turns accesses into commands, and what commands raise into exceptions of the GenICam tree. One register is
// read and written by READREG and WRITEREG, which every camera has; more, by READMEM and WRITEMEM.
class channel_port final : public register_port {
 public:
  // The channel outlives it.
  explicit channel_port(control_channel& channel) : channel_(channel) {}

  void read(std::uint64_t address, std::span<std::uint8_t> to) override;
  // What is no whole number of words is written together with the bytes around it, which are read before.
  void write(std::uint64_t address, std::span<const std::uint8_t> from) override;

 private:
  void read_words(std::uint64_t address, std::span<std::uint8_t> to);
  void write_words(std::uint64_t address, std::span<const std::uint8_t> from);

  control_channel& channel_;
};

}  // namespace gige

#endif
