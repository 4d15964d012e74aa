// Frames as packets: whoever puts them together has the image and its chunks.
#include "platform/gvcam/frame.h"

#include <gmock/gmock.h>

#include <numeric>

namespace {

using gige_protocol::byte_view;
using gige_protocol::id_mode;
using gige_protocol::payload_type;
using gige_protocol::status;
using gvcam::frame;
using gvcam::frame_packet;
using gvcam::frame_settings;

constexpr std::uint64_t timestamp = 0x0102030405060708;
constexpr std::uint64_t blockId = 7;

frame_settings settings_with(payload_type payload, id_mode ids, std::size_t packetSize) {
  frame_settings settings;
  settings.payload = payload;
  settings.ids = ids;
  settings.packetSize = packetSize;
  settings.pixelFormat = picture::pixelFormatMono8;
  settings.picture.width = 100;
  settings.picture.height = 21;
  settings.picture.offsetX = 12;
  settings.picture.exposureUs = 5000;
  if (settings.has_chunks()) {
    settings.chunks = 0b10'0010'0001;  // OffsetX, Timestamp, FrameID
  }
  return settings;
}

std::vector<std::uint8_t> bytes_of(const frame_packet& packet) {
  std::vector<std::uint8_t> bytes;
  for (const byte_view part : {packet.head.view(), packet.image, packet.chunks}) {
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
  return bytes;
}

// What a tag says at the end of the bytes, which then end with the data before it.
struct chunk {
  std::uint32_t id;
  std::vector<std::uint8_t> data;
  friend bool operator==(const chunk&, const chunk&) = default;
};
chunk take_last_chunk(std::vector<std::uint8_t>& bytes) {
  const std::size_t tag = bytes.size() - gvcam::chunkTagSize;
  const auto id = gige_protocol::load<std::uint32_t>(bytes, tag);
  const auto size = gige_protocol::load<std::uint32_t>(bytes, tag + 4);
  chunk last{id,
             {bytes.begin() + static_cast<std::ptrdiff_t>(tag - size),
              bytes.begin() + static_cast<std::ptrdiff_t>(tag)}};
  bytes.resize(tag - size);
  return last;
}

TEST(frame, its_packets_put_together_are_the_image_and_its_chunks) {
  const auto pixels = std::make_shared<gvcam::pixel_memory>(2100);
  std::iota(pixels->begin(), pixels->end(), std::uint8_t{0});
  // Packets of 540 bytes end within the image, within a chunk and with the frame.
  for (const std::size_t packetSize : {576U, 1000U, 1500U, 9000U, 2136U, 2135U, 2148U}) {
    for (const id_mode ids : {id_mode::standard, id_mode::extended}) {
      for (const payload_type type :
           {payload_type::image, payload_type::image_with_chunks, payload_type::chunk_data}) {
        SCOPED_TRACE(std::to_string(packetSize) + " bytes, " + name_of(type));
        const frame_settings settings = settings_with(type, ids, packetSize);
        const frame made(settings, blockId, timestamp, pixels);
        std::vector<std::uint8_t> payload;
        for (std::uint32_t id = 0; id < made.packet_count(); ++id) {
          const std::vector<std::uint8_t> packet = bytes_of(made.packet(id));
          const auto head = gige_protocol::parse_packet_head(packet);
          ASSERT_TRUE(head && head->blockId == blockId && head->packetId == id && head->ids == ids);
          const byte_view body = byte_view(packet).subspan(head->size());
          EXPECT_LE(packet.size(), packetSize - 28);
          if (id == 0) {
            const auto leader = gige_protocol::parse_leader(body);
            ASSERT_TRUE(leader && leader->type == type && leader->timestamp == timestamp);
            EXPECT_EQ(leader->image.width, has_geometry(type) ? 100U : 0U);
          } else if (id + 1 == made.packet_count()) {
            const auto trailer = gige_protocol::parse_trailer(body);
            ASSERT_TRUE(trailer && trailer->type == type);
          } else {
            EXPECT_EQ(head->format, gige_protocol::packet_format::payload);
            EXPECT_EQ(packet.size() == packetSize - 28,
                      id + 2 < made.packet_count() || packet.size() == packetSize - 28);
            payload.insert(payload.end(), body.begin(), body.end());
          }
        }
        ASSERT_EQ(payload.size(), settings.payload_size());
        if (settings.has_chunks()) {
          EXPECT_EQ(take_last_chunk(payload), (chunk{0x1009, {0, 0, 0, 0, 0, 0, 0, 7}}));
          EXPECT_EQ(take_last_chunk(payload), (chunk{0x1005, {1, 2, 3, 4, 5, 6, 7, 8}}));
          EXPECT_EQ(take_last_chunk(payload), (chunk{0x1000, {0, 0, 0, 12}}));
          EXPECT_EQ(take_last_chunk(payload), (chunk{gvcam::imageChunkId, *pixels}));
        } else {
          EXPECT_EQ(payload, *pixels);
        }
      }
    }
  }
}

TEST(frame, a_packet_that_is_sent_again_says_so_where_the_client_knows_how) {
  const auto pixels = std::make_shared<gvcam::pixel_memory>(2100);
  for (const id_mode ids : {id_mode::standard, id_mode::extended}) {
    for (const bool wantsStatusCodes2 : {false, true}) {
      frame_settings settings = settings_with(payload_type::image, ids, 576);
      settings.wantsStatusCodes2 = wantsStatusCodes2;
      const frame made(settings, blockId, timestamp, pixels);
      const std::vector<std::uint8_t> again = bytes_of(made.packet_again(2));
      const auto head = gige_protocol::parse_packet_head(again);
      EXPECT_EQ(head->state, wantsStatusCodes2 ? status::packet_resend : status::success);
      EXPECT_EQ(head->flags, ids == id_mode::extended ? gige_protocol::packet_flags::resent : 0);
      std::vector<std::uint8_t> first = bytes_of(made.packet(2));
      EXPECT_TRUE(std::equal(again.begin() + static_cast<std::ptrdiff_t>(head->size()), again.end(),
                             first.begin() + static_cast<std::ptrdiff_t>(head->size()), first.end()));
    }
  }
}

}  // namespace
