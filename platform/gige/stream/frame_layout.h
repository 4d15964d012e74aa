// The setup of a stream, and how its frames are split into packets.
#ifndef PLATFORM_GIGE_STREAM_FRAME_LAYOUT_H
#define PLATFORM_GIGE_STREAM_FRAME_LAYOUT_H

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "platform/gige_protocol/gvsp.h"

namespace gige {

// What is known of the stream before its first frame.
struct assembly_setup {
  std::uint64_t payloadBytes = 0;  // of one frame, with chunks: PayloadSize
  std::uint32_t width = 0;         // pixels
  std::uint32_t height = 0;
  std::uint32_t pixelFormat = 0;  // code of the Pixel Format Naming Convention
  std::uint32_t packetBytes = 0;  // with IP and UDP headers, as the camera's register counts
  gige_protocol::id_mode ids = gige_protocol::id_mode::standard;
  bool cameraResends = false;          // it announces packet resend
  std::uint32_t maxPacketResends = 0;  // packets of one frame that are requested; repetitions count
  // The longest wait for a missing packet before it is requested again, or for the rest of a silent frame.
  std::chrono::nanoseconds resendTimeout{};
  std::chrono::nanoseconds frameTimeout{};  // from a frame's first packet to its end
  std::size_t largestBatch = 64;            // datagrams that are predicted or accepted at once
};

// Packet 0 is the leader, packets from 1 on carry the payload, and the last one is the trailer. A frame may
// have fewer payload packets than the layout, where its chunks are shorter; it never has more.
struct frame_layout {
  std::uint64_t payloadBytes = 0;
  std::uint64_t imageBytes = 0;      // without chunks: the least that a frame must have
  std::size_t bytesPerPacket = 0;    // of all payload packets but the last
  std::uint32_t payloadPackets = 0;  // at least 1

  std::uint32_t trailer() const { return payloadPackets + 1; }
  // Whether that is a payload packet of bytesPerPacket in a frame of full length.
  bool is_full(std::uint32_t packet) const { return packet > 0 && packet <= payloadBytes / bytesPerPacket; }
  // Where a payload packet goes in the frame, and how many bytes it has there.
  std::size_t offset_of(std::uint32_t packet) const {
    return static_cast<std::size_t>(packet - 1) * bytesPerPacket;
  }
  std::size_t bytes_of(std::uint32_t packet) const {
    return packet < payloadPackets ? bytesPerPacket
                                   : static_cast<std::size_t>(payloadBytes) - offset_of(packet);
  }
};

// Raises std::invalid_argument with a text that names the invalid value and the valid ones.
frame_layout lay_out(const assembly_setup& setup);

}  // namespace gige

#endif
