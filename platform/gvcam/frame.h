// A frame as the packets of a stream. It stays as it is, so that packets can be sent again.
#ifndef PLATFORM_GVCAM_FRAME_H
#define PLATFORM_GVCAM_FRAME_H

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/gige_protocol/gvsp.h"
#include "platform/gvcam/frame_settings.h"

namespace gvcam {

using pixel_memory = std::vector<std::uint8_t>;

// A packet in the order of its bytes: its head (all of it, for leader and trailer), and what it has of the
// image and of the chunks. Image and chunks belong to the frame.
struct frame_packet {
  gige_protocol::leader_packet head;
  gige_protocol::byte_view image;
  gige_protocol::byte_view chunks;
};

class frame {
 public:
  // `pixels` are as many as the settings say. Timestamps are ticks of the camera's clock, nanoseconds.
  frame(const frame_settings& settings, std::uint64_t blockId, std::uint64_t timestamp,
        std::shared_ptr<const pixel_memory> pixels);

  std::uint64_t block_id() const { return blockId_; }
  std::uint32_t packet_count() const { return payloadPackets_ + 2; }  // with leader and trailer
  std::size_t size() const { return pixels_->size() + chunks_.size(); }

  // The packet of that id, less than `packet_count`; as long as the frame lives.
  frame_packet packet(std::uint32_t id) const;
  // The same, sent again on request.
  frame_packet packet_again(std::uint32_t id) const;

 private:
  frame_packet make_packet(std::uint32_t id, gige_protocol::packet_head head) const;
  gige_protocol::leader leader() const;
  gige_protocol::trailer trailer() const;
  std::vector<std::uint8_t> make_chunks() const;

  frame_settings settings_;
  std::uint64_t blockId_;
  std::uint64_t timestamp_;
  std::shared_ptr<const pixel_memory> pixels_;
  std::vector<std::uint8_t> chunks_;
  std::size_t perPacket_;  // bytes
  std::uint32_t payloadPackets_;
};

// Instead of a packet that was asked for again and cannot be had.
frame_packet unavailable_packet(const gige_protocol::resend_request& request, std::uint32_t packetId,
                                gige_protocol::status why);

}  // namespace gvcam

#endif
