// The port of a camera's description: its registers, over the control channel.
#ifndef PLATFORM_GIGE_CHANNEL_PORT_H
#define PLATFORM_GIGE_CHANNEL_PORT_H

#include "platform/gige/control/control_channel.h"
#include "platform/gige/description/register_port.h"

namespace gige {

// Turns accesses into commands, and their errors into exceptions of the GenICam tree. One register takes
// READREG or WRITEREG, which every camera has; anything else takes READMEM or WRITEMEM.
class channel_port final : public register_port {
 public:
  // `channel` outlives this object.
  explicit channel_port(control_channel& channel) : channel_(channel) {}

  void read(std::uint64_t address, std::span<std::uint8_t> to) override;
  // A write of parts of words reads the words first, and writes them with the new bytes.
  void write(std::uint64_t address, std::span<const std::uint8_t> from) override;

 private:
  void read_words(std::uint64_t address, std::span<std::uint8_t> to);
  void write_words(std::uint64_t address, std::span<const std::uint8_t> from);

  control_channel& channel_;
};

}  // namespace gige

#endif
