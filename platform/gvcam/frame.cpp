#include "platform/gvcam/frame.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace gvcam {
namespace {

using gige_protocol::byte_view;
using gige_protocol::packet_header;
using gige_protocol::status;

void append(std::vector<std::uint8_t>& to, std::uint64_t number, std::size_t size) {
  for (std::size_t byte = size; byte-- > 0;) {
    to.push_back(static_cast<std::uint8_t>(number >> (8 * byte)));
  }
}

void append_tag(std::vector<std::uint8_t>& to, std::uint32_t id, std::size_t size) {
  append(to, id, sizeof id);
  append(to, size, sizeof id);
}

// The part of `whole` from `first` to before `last`, as far as there is one.
byte_view part(byte_view whole, std::size_t first, std::size_t last) {
  const std::size_t end = std::min(last, whole.size());
  return first < end ? whole.subspan(first, end - first) : byte_view();
}

void put_head(frame_packet& packet, const packet_header& head) {
  std::array<std::uint8_t, gige_protocol::extendedHeaderSize> bytes{};
  packet.head.put(byte_view(bytes).first(store_packet_header(head, bytes)));
}

}  // namespace

frame::frame(const frame_settings& settings, std::uint64_t blockId, std::uint64_t timestamp,
             std::shared_ptr<const pixel_memory> pixels)
    : settings_(settings),
      blockId_(blockId),
      timestamp_(timestamp),
      pixels_(std::move(pixels)),
      chunks_(make_chunks()),
      perPacket_(
          std::max<std::size_t>(gige_protocol::payload_per_packet(settings.packetSize, settings.ids), 1)),
      payloadPackets_(static_cast<std::uint32_t>(gige_protocol::payload_packet_count(size(), perPacket_))) {}

frame_packet frame::packet(std::uint32_t id) const {
  return make_packet(id, {});
}

frame_packet frame::packet_again(std::uint32_t id) const {
  packet_header head;
  if (settings_.ids == gige_protocol::id_mode::extended) {
    head.flags = gige_protocol::packet_flags::resent;
  }
  if (settings_.wantsStatusCodes2) {
    head.state = status::packet_resend;
  }
  return make_packet(id, head);
}

frame_packet frame::make_packet(std::uint32_t id, packet_header head) const {
  head.ids = settings_.ids;
  head.blockId = blockId_;
  head.packetId = id;
  frame_packet result;
  if (id == 0) {
    result.head = make_leader(head, leader());
  } else if (id > payloadPackets_) {
    result.head.put(make_trailer(head, trailer()).view());
  } else {
    put_head(result, head);
    const std::size_t first = (id - 1) * perPacket_;
    const std::size_t last = first + perPacket_;
    const std::size_t image = pixels_->size();
    result.image = part(*pixels_, first, last);
    result.chunks = last > image ? part(chunks_, std::max(first, image) - image, last - image) : byte_view();
  }
  return result;
}

gige_protocol::leader frame::leader() const {
  const picture::picture_settings& picture = settings_.picture;
  const auto side = [](std::size_t pixels) { return static_cast<std::uint32_t>(pixels); };
  gige_protocol::leader body{.type = settings_.payload, .timestamp = timestamp_, .image = {}};
  if (has_geometry(body.type)) {
    body.image = {.pixelFormat = settings_.pixelFormat,
                  .width = side(picture.width),
                  .height = side(picture.height),
                  .offsetX = side(picture.offsetX),
                  .offsetY = side(picture.offsetY)};
  }
  return body;
}

gige_protocol::trailer frame::trailer() const {
  return {.type = settings_.payload,
          .height = static_cast<std::uint32_t>(settings_.picture.height),
          .payloadSize = static_cast<std::uint32_t>(size()),
          .chunkSize = static_cast<std::uint32_t>(chunks_.size()),
          .chunkLayoutId = static_cast<std::uint32_t>(settings_.chunks.to_ulong())};
}

std::vector<std::uint8_t> frame::make_chunks() const {
  std::vector<std::uint8_t> chunks;
  if (!settings_.has_chunks()) {
    return chunks;
  }
  const picture::picture_settings& picture = settings_.picture;
  const std::array<std::uint64_t, chunkKinds.size()> values = {
      picture.offsetX,
      picture.offsetY,
      picture.width,
      picture.height,
      settings_.pixelFormat,
      timestamp_,
      std::bit_cast<std::uint64_t>(picture.exposureUs),
      std::bit_cast<std::uint64_t>(settings_.sensorGain),
      0,
      blockId_};
  append_tag(chunks, imageChunkId, pixels_->size());
  for (std::size_t kind = 0; kind < chunkKinds.size(); ++kind) {
    if (settings_.chunks[kind]) {
      append(chunks, values[kind], chunkKinds[kind].size);
      append_tag(chunks, chunkKinds[kind].id, chunkKinds[kind].size);
    }
  }
  return chunks;
}

frame_packet unavailable_packet(const gige_protocol::resend_request& request, std::uint32_t packetId,
                                status why) {
  frame_packet result;
  put_head(result, {.state = why, .ids = request.ids, .blockId = request.blockId, .packetId = packetId});
  return result;
}

}  // namespace gvcam
