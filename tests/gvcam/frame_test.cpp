// Frames as packets: put together again, they are the image and its chunks.
#include "platform/gvcam/frame.h"

#include <gmock/gmock.h>

#include <numeric>

namespace {

using gige_protocol::byte_view;
using gige_protocol::id_mode;
using gige_protocol::payload_type;
using gige_protocol::status;
using gvcam::frame;
using bytes = std::vector<std::uint8_t>;

gvcam::frame_settings settings_with(payload_type payload, id_mode ids, std::size_t packetSize) {
  gvcam::frame_settings settings;
  settings.payload = payload;
  settings.ids = ids;
  settings.packetSize = packetSize;
  settings.picture.width = 100;
  settings.picture.height = 21;
  if (settings.has_chunks()) {
    settings.chunks = 0b10'0010'0001;  // OffsetX, Timestamp, FrameID
  }
  return settings;
}

frame frame_with(const gvcam::frame_settings& settings, const bytes& pixels) {
  return {settings, 7, 0x0102030405060708, std::make_shared<const bytes>(pixels)};
}

bytes bytes_of(const gvcam::frame_packet& packet) {
  bytes all;
  for (const byte_view part : {packet.head.view(), packet.image, packet.chunks}) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

bytes payload_of(const frame& made, std::size_t packetSize, std::size_t payloadSize) {
  bytes payload;
  for (std::uint32_t id = 1; id + 1 < made.packet_count(); ++id) {
    const bytes packet = bytes_of(made.packet(id));
    EXPECT_EQ(gige_protocol::parse_packet_header(packet)->packetId, id);
    EXPECT_EQ(packet.size(), std::min(packetSize - 28, 8 + payloadSize - payload.size()));
    payload.insert(payload.end(), packet.begin() + 8, packet.end());
  }
  return payload;
}

// Chunks themselves are read by other programs, see program_test.
TEST(frame, its_packets_put_together_are_the_image_and_its_chunks) {
  bytes pixels(2100);
  std::iota(pixels.begin(), pixels.end(), std::uint8_t{0});
  for (const payload_type type :
       {payload_type::image, payload_type::image_with_chunks, payload_type::chunk_data}) {
    bytes expected = pixels;
    // Packets of the first size hold all. Those of the others end within the image, with it, within a chunk
    // and with the frame.
    for (const std::size_t packetSize : {9000U, 576U, 1000U, 2136U, 2135U, 2148U}) {
      const auto settings = settings_with(type, id_mode::standard, packetSize);
      const bytes payload = payload_of(frame_with(settings, pixels), packetSize, settings.payload_size());
      expected.insert(expected.end(), payload.begin() + static_cast<std::ptrdiff_t>(expected.size()),
                      payload.end());
      EXPECT_EQ(payload, expected) << packetSize << name_of(type);
      EXPECT_EQ(payload.size(), settings.payload_size());
    }
  }
}

TEST(frame, a_packet_that_is_sent_again_says_so_where_the_client_knows_how) {
  for (const id_mode ids : {id_mode::standard, id_mode::extended}) {
    for (const bool wantsStatusCodes2 : {false, true}) {
      auto settings = settings_with(payload_type::image, ids, 576);
      settings.wantsStatusCodes2 = wantsStatusCodes2;
      const frame made = frame_with(settings, bytes(2100));
      const bytes again = bytes_of(made.packet_again(2));
      const auto head = gige_protocol::parse_packet_header(again);
      EXPECT_EQ(head->state, wantsStatusCodes2 ? status::packet_resend : status::success);
      EXPECT_EQ(head->flags, ids == id_mode::extended ? gige_protocol::packet_flags::resent : 0);
    }
  }
}

}  // namespace
