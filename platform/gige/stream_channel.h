// The registers of a camera's stream channel: where its frames go, and in packets of which size and distance.
#ifndef PLATFORM_GIGE_STREAM_CHANNEL_H
#define PLATFORM_GIGE_STREAM_CHANNEL_H

#include <cstdint>
#include <functional>

#include "platform/gige/bootstrap_registers.h"

namespace gige {

// Order of writes. Setting options writes packet size, then packet delay. A start writes what is not in the
// camera yet: packet delay, destination address, destination port, packet size. The port comes before the
// packet size, which is found with test packets to that port. A second start with the same options writes
// nothing.
//
// Under the camera's lock. Raises what bootstrap_registers does.
class stream_channel {
 public:
  // `registers` outlives this object.
  explicit stream_channel(bootstrap_registers& registers) : registers_(registers) {}

  // Reads what the camera can do. The members below are 0 or false before.
  void read_capabilities();
  std::uint64_t ticks_per_second() const { return ticksPerSecond_; }  // of the camera's clock; 0: unknown
  bool has_extended_ids() const { return extendedIds_; }              // 64-bit frame numbers

  // Bytes of a packet with IP and UDP headers, as the register has it.
  std::uint32_t packet_size();
  // False when the camera refuses; a log line says why. A size of 0 writes nothing.
  bool write_packet_size(std::uint32_t bytes);
  // The same for the pause between two packets. Writes it once after each `forget_options`.
  bool write_packet_delay(std::uint32_t microseconds);
  // The options changed: delay and size have to be written again.
  void forget_options();

  // Has the camera send to that address and port, unless it does already.
  void set_destination(std::uint32_t address, std::uint16_t port);
  // The port that the camera sends from; 0 before set_destination, and where the camera does not say.
  std::uint16_t source_port() const { return sourcePort_; }

  // Writes the packet size that `find` returns, once after each `forget_options`.
  void settle_packet_size(const std::function<std::uint32_t()>& find);
  // Has the camera send one packet of that size to the destination. Returns the size that the camera made of
  // it; 0 when the camera refuses.
  std::uint32_t fire_test_packet(std::uint32_t bytes);

 private:
  std::uint32_t packet_size_flags();

  bootstrap_registers& registers_;
  std::uint64_t ticksPerSecond_ = 0;
  bool extendedIds_ = false;
  bool hasSourcePort_ = false;
  std::uint16_t destinationPort_ = 0;  // as written; 0: not yet
  std::uint16_t sourcePort_ = 0;
  bool delayWritten_ = false;  // since forget_options
  bool sizeSettled_ = false;   // since forget_options
};

}  // namespace gige

#endif
