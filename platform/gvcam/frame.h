// A frame as packets of a GVSP stream. It never changes, so that its packets can be sent again.
#ifndef PLATFORM_GVCAM_FRAME_H
#define PLATFORM_GVCAM_FRAME_H

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/gige_protocol/gvsp.h"
#include "platform/gvcam/frame_settings.h"

namespace gvcam {

using pixel_memory = std::vector<std::uint8_t>;

// The bytes of a packet, in order: its head, a part of the image, a part of the chunks. Leader and trailer
// are a head only. Image and chunks belong to the frame.
struct frame_packet {
  gige_protocol::leader_packet head;
  gige_protocol::byte_view image;
  gige_protocol::byte_view chunks;
};

class frame {
 public:
  // `pixels` has the image size of the settings. The timestamp is in nanoseconds of the camera's clock.
  frame(const frame_settings& settings, std::uint64_t blockId, std::uint64_t timestamp,
        std::shared_ptr<const pixel_memory> pixels);

  std::uint64_t block_id() const { return blockId_; }
  std::uint32_t packet_count() const { return payloadPackets_ + 2; }  // with leader and trailer
  std::size_t size() const { return pixels_->size() + chunks_.size(); }

  // The packet with that id, which is less than `packet_count`. Valid as long as the frame.
  frame_packet packet(std::uint32_t id) const;
  // The same packet, marked as resent where the client understands that.
  frame_packet packet_again(std::uint32_t id) const;

 private:
  frame_packet make_packet(std::uint32_t id, gige_protocol::packet_header head) const;
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

// The answer to a resend request for a packet that is not available.
frame_packet unavailable_packet(const gige_protocol::resend_request& request, std::uint32_t packetId,
                                gige_protocol::status why);

}  // namespace gvcam

#endif
