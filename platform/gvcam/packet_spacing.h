// How far apart the packets of a stream are sent.
#ifndef PLATFORM_GVCAM_PACKET_SPACING_H
#define PLATFORM_GVCAM_PACKET_SPACING_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace gvcam {

// What keeps packets apart, beside the speed of the machine.
struct packet_spacing {
  bool keepsPacketDelay = false;  // GevSCPD, as the client writes it
  std::uint32_t linkSpeed = 0;    // of the emulated link, megabits a second; 0: no limit

  // From the start of a packet to the start of the next one. `packetSize` is GevSCPSPacketSize, bytes with IP
  // and UDP heads. On a link of 1000 Mbit/s, a packet of 1500 bytes takes 1538 bytes of Ethernet, 12304
  // nanoseconds.
  std::chrono::nanoseconds interval(std::size_t packetSize, std::chrono::nanoseconds packetDelay) const {
    constexpr std::uint32_t ethernetBytes = 38;  // preamble, head, checksum and gap of each packet
    const std::chrono::nanoseconds delay = keepsPacketDelay ? packetDelay : std::chrono::nanoseconds(0);
    return linkSpeed == 0
               ? delay
               : delay + std::chrono::nanoseconds(8 * (packetSize + ethernetBytes) * 1000 / linkSpeed);
  }

  // How many packets are sent by one system call: as many as fall into the shortest time that a thread can
  // sleep.
  static std::size_t packets_at_once(std::chrono::nanoseconds interval) {
    constexpr std::size_t most = 64;
    constexpr std::chrono::nanoseconds shortestSleep = std::chrono::microseconds(100);
    return interval.count() == 0
               ? most
               : std::clamp<std::size_t>(static_cast<std::size_t>(shortestSleep / interval), 1, most);
  }
};

}  // namespace gvcam

#endif
