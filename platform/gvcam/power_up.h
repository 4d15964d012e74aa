// What a camera is, and its registers at power-up.
#ifndef PLATFORM_GVCAM_POWER_UP_H
#define PLATFORM_GVCAM_POWER_UP_H

#include <cstdint>
#include <optional>
#include <string>

#include "platform/gige_protocol/discovery.h"
#include "platform/gvcam/packet_spacing.h"
#include "platform/gvcam/registers.h"

namespace gvcam {

// What all cameras of the program have in common. Settings are those at power-up.
struct camera_setup {
  std::uint32_t width = 1280;  // of sensor and window, pixels
  std::uint32_t height = 1024;
  double framesPerSecond = 30;
  std::uint32_t packetSize = 1500;  // of the stream, bytes with IP and UDP heads
  bool hasNoise = true;
  bool isStill = false;        // the first picture of an acquisition is repeated
  bool resetsOnClose = false;  // restores power-up settings when a client loses control
  packet_spacing spacing{};
  bool canResend = true;          // announces that packets are sent again, and sends them
  bool hasExtendedIds = false;    // 64-bit block ids
  bool hasExtendedChunks = true;  // payload type image with chunks, rather than chunk data
  std::uint64_t seed = 1;         // of the faults of packets
  std::string descriptionName = "gvcam.xml";
  std::string description;  // the GenICam description, XML or a zip file with it
};

// What one camera differs by.
struct camera_identity {
  std::string serial;    // at most 15 characters, as userName
  std::uint32_t ip = 0;  // IPv4 in host byte order; an address of this machine
  std::string userName;
  std::optional<gige_protocol::mac_address> mac = std::nullopt;  // none: follows from the serial number
};

// The registers of a camera that was just switched on, with its description.
register_memory power_up_memory(const camera_identity& identity, const camera_setup& setup);

}  // namespace gvcam

#endif
