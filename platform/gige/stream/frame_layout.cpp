#include "platform/gige/stream/frame_layout.h"

#include <stdexcept>
#include <string>

namespace gige {
namespace {

// The Pixel Format Naming Convention keeps the bits of a pixel in the third byte of its code.
std::uint64_t bits_per_pixel(std::uint32_t pixelFormat) {
  return pixelFormat >> 16U & 0xffU;
}

std::uint64_t image_bytes(const assembly_setup& setup) {
  constexpr std::uint32_t largestSide = 1U << 20U;  // so that the product of all three has room in 64 bits
  const auto possible = [](std::uint32_t pixels) { return pixels > 0 && pixels <= largestSide; };
  if (!possible(setup.width) || !possible(setup.height)) {
    throw std::invalid_argument("frames of " + std::to_string(setup.width) + " x " +
                                std::to_string(setup.height) + " pixels, where 1 to " +
                                std::to_string(largestSide) + " each can be");
  }
  const std::uint64_t bits = bits_per_pixel(setup.pixelFormat);
  if (bits == 0) {
    throw std::invalid_argument("pixel format " + std::to_string(setup.pixelFormat) +
                                " says no number of bits per pixel");
  }
  constexpr std::uint64_t bitsPerByte = 8;
  return (setup.width * bits * setup.height + bitsPerByte - 1) / bitsPerByte;
}

std::size_t bytes_per_packet(const assembly_setup& setup) {
  const std::size_t bytes = gige_protocol::payload_per_packet(setup.packetBytes, setup.ids);
  if (bytes < gige_protocol::largestLeaderSize) {
    throw std::invalid_argument("packets of " + std::to_string(setup.packetBytes) +
                                " bytes are too small for a leader");
  }
  return bytes;
}

}  // namespace

frame_layout lay_out(const assembly_setup& setup) {
  const frame_layout sizes{.payloadBytes = setup.payloadBytes,
                           .imageBytes = image_bytes(setup),
                           .bytesPerPacket = bytes_per_packet(setup)};
  if (sizes.payloadBytes < sizes.imageBytes) {
    throw std::invalid_argument("a payload of " + std::to_string(sizes.payloadBytes) +
                                " bytes for an image of " + std::to_string(sizes.imageBytes));
  }
  const std::uint64_t packets = gige_protocol::payload_packet_count(sizes.payloadBytes, sizes.bytesPerPacket);
  const std::uint32_t most = gige_protocol::largest_packet_id(setup.ids) - 1;  // the trailer needs one
  if (packets > most) {
    throw std::invalid_argument("a payload of " + std::to_string(packets) + " packets, where " +
                                std::to_string(most) + " can be numbered");
  }
  frame_layout layout = sizes;
  layout.payloadPackets = static_cast<std::uint32_t>(packets);
  return layout;
}

}  // namespace gige
