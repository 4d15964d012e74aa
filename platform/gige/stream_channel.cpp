#include "platform/gige/stream_channel.h"

#include <algorithm>

#include "platform/gige_protocol/registers.h"

namespace gige {
namespace {

namespace protocol = gige_protocol;
namespace registers = gige_protocol::registers;

}  // namespace

void stream_channel::read_capabilities() {
  ticksPerSecond_ = std::uint64_t{registers_.read_if_present(registers::timestampFrequencyHigh)} << 32U |
                    registers_.read_if_present(registers::timestampFrequencyLow);
  hasSourcePort_ =
      (registers_.read_if_present(registers::gvspCapability) & protocol::gvsp_capability::sourcePort) != 0;
  extendedIds_ = (registers_.read_if_present(registers::gvspConfiguration) &
                  protocol::gvsp_configuration::extendedIds) != 0;
}

// ---- Packet size and delay

std::uint32_t stream_channel::packet_size() {
  return registers_.read(registers::streamPacketSize) & protocol::packet_size::sizeMask;
}

// The bits beside the size.
std::uint32_t stream_channel::packet_size_flags() {
  return registers_.read(registers::streamPacketSize) & ~protocol::packet_size::sizeMask;
}

bool stream_channel::write_packet_size(std::uint32_t bytes) {
  return bytes == 0 ||
         registers_.try_to_write("packet size", registers::streamPacketSize, packet_size_flags() | bytes);
}

bool stream_channel::write_packet_delay(std::uint32_t microseconds) {
  if (!delayWritten_) {
    const double ticks = microseconds * 1e-6 * static_cast<double>(ticksPerSecond_);
    delayWritten_ = registers_.try_to_write("packet delay", registers::streamPacketDelay,
                                            static_cast<std::uint32_t>(std::min(ticks, 4e9)));
  }
  return delayWritten_;
}

void stream_channel::forget_options() {
  delayWritten_ = false;
  sizeSettled_ = false;
}

void stream_channel::settle_packet_size(const std::function<std::uint32_t()>& find) {
  if (!sizeSettled_) {
    const std::uint32_t size = find();
    registers_.write(registers::streamPacketSize, packet_size_flags() | size);
    sizeSettled_ = true;
  }
}

std::uint32_t stream_channel::fire_test_packet(std::uint32_t bytes) {
  namespace bits = protocol::packet_size;
  try {
    registers_.write(registers::streamPacketSize,
                     packet_size_flags() | bits::fireTestPacket | bits::doNotFragment | bytes);
    return registers_.read_again(registers::streamPacketSize) & bits::sizeMask;
  } catch (const GenICam::TimeoutException&) {
    throw;
  } catch (const GenICam::GenericException&) {
    return 0;
  }
}

// ---- Destination

void stream_channel::set_destination(std::uint32_t address, std::uint16_t port) {
  if (port == destinationPort_) {
    return;
  }
  registers_.write(registers::streamDestination, address);
  registers_.write(registers::streamPort, port);
  destinationPort_ = port;
  sourcePort_ =
      hasSourcePort_ ? static_cast<std::uint16_t>(registers_.read_again(registers::streamSourcePort)) : 0;
}

}  // namespace gige
