#include "platform/gige_protocol/gvsp.h"

#include <array>

#include "platform/gige_protocol/names.h"

namespace gige_protocol {
namespace {

constexpr named<packet_format> formatNames[] = {
    {packet_format::leader, "leader"},
    {packet_format::trailer, "trailer"},
    {packet_format::payload, "payload"},
    {packet_format::all_in, "all-in packet"},
    {packet_format::h264, "H.264 payload"},
    {packet_format::multi_zone, "multi-zone payload"},
    {packet_format::multi_part, "multi-part payload"},
    {packet_format::gendc, "GenDC payload"},
};

constexpr payload_type with_chunks(payload_type type) {
  return static_cast<payload_type>(static_cast<std::uint16_t>(type) | extendedChunkBit);
}

constexpr named<payload_type> payloadNames[] = {
    {payload_type::image, "image"},
    {payload_type::raw_data, "raw data"},
    {payload_type::file, "file"},
    {payload_type::chunk_data, "chunk data"},
    {payload_type::extended_chunk_data, "extended chunk data"},
    {payload_type::jpeg, "JPEG image"},
    {payload_type::jpeg2000, "JPEG 2000 image"},
    {payload_type::h264, "H.264 video"},
    {payload_type::multi_zone_image, "multi-zone image"},
    {payload_type::multi_part, "multi-part data"},
    {payload_type::gendc, "GenDC container"},
    {payload_type::image_with_chunks, "image with chunks"},
    {with_chunks(payload_type::raw_data), "raw data with chunks"},
    {with_chunks(payload_type::file), "file with chunks"},
    {with_chunks(payload_type::jpeg), "JPEG image with chunks"},
    {with_chunks(payload_type::jpeg2000), "JPEG 2000 image with chunks"},
    {with_chunks(payload_type::h264), "H.264 video with chunks"},
    {with_chunks(payload_type::multi_zone_image), "multi-zone image with chunks"},
    {with_chunks(payload_type::multi_part), "multi-part data with chunks"},
};

constexpr std::uint8_t extendedBit = 0x80;

// Leaders of all types begin with type and timestamp; trailers with the type.
constexpr std::size_t commonLeaderSize = 12;
constexpr std::size_t commonTrailerSize = 4;
constexpr std::size_t sizedTrailerSize = 8;  // with a height or a payload size

// The type is the second half of the first word, in leaders and trailers.
payload_type type_at_start(byte_view body) {
  return static_cast<payload_type>(load<std::uint16_t>(body, 2));
}

template <class buffer>
void put_type(buffer& packet, payload_type type) {
  packet.put_zeros(2);
  packet.put(static_cast<std::uint16_t>(type));
}

template <class buffer>
buffer begin_packet(const packet_header& header) {
  std::array<std::uint8_t, extendedHeaderSize> bytes{};
  const std::size_t size = store_packet_header(header, bytes);
  buffer packet;
  packet.put(byte_view(bytes).first(size));
  return packet;
}

image_geometry load_geometry(byte_view body) {
  return {.pixelFormat = load<std::uint32_t>(body, 12),
          .width = load<std::uint32_t>(body, 16),
          .height = load<std::uint32_t>(body, 20),
          .offsetX = load<std::uint32_t>(body, 24),
          .offsetY = load<std::uint32_t>(body, 28),
          .paddingX = load<std::uint16_t>(body, 32),
          .paddingY = load<std::uint16_t>(body, 34)};
}

void put_geometry(leader_packet& packet, const image_geometry& image) {
  packet.put(image.pixelFormat);
  packet.put(image.width);
  packet.put(image.height);
  packet.put(image.offsetX);
  packet.put(image.offsetY);
  packet.put(image.paddingX);
  packet.put(image.paddingY);
}

std::size_t trailer_size(payload_type type) {
  switch (type) {
    case payload_type::image:
    case payload_type::chunk_data:
      return sizedTrailerSize;
    case payload_type::image_with_chunks:
      return largestTrailerSize;
    default:
      return commonTrailerSize;
  }
}

}  // namespace

const char* name_of(packet_format format) {
  return look_up(formatNames, format, "unknown format");
}

const char* name_of(payload_type type) {
  const bool ofMaker = (static_cast<std::uint16_t>(type) & deviceSpecificBit) != 0;
  return look_up(payloadNames, type, ofMaker ? "device-specific payload" : "unknown payload");
}

std::size_t store_packet_header(const packet_header& header,
                                std::span<std::uint8_t, extendedHeaderSize> bytes) {
  const auto format = static_cast<std::uint8_t>(header.format);
  store(bytes, 0, static_cast<std::uint16_t>(header.state));
  if (header.ids == id_mode::standard) {
    store(bytes, 2, static_cast<std::uint16_t>(header.blockId));
    store(bytes, 4, std::uint32_t{format} << 24U | (header.packetId & largest_packet_id(header.ids)));
    return standardHeaderSize;
  }
  store(bytes, 2, header.flags);
  store(bytes, 4, static_cast<std::uint32_t>(extendedBit | format) << 24U);
  store(bytes, 8, header.blockId);
  store(bytes, 16, header.packetId);
  return extendedHeaderSize;
}

parsed<leader> parse_leader(byte_view body) {
  if (body.size() < commonLeaderSize) {
    return refusal{"a leader of less than 12 bytes"};
  }
  leader result{.type = type_at_start(body), .timestamp = load<std::uint64_t>(body, 4), .image = {}};
  if (has_geometry(result.type)) {
    if (body.size() < largestLeaderSize) {
      return refusal{"a leader of an image of less than 36 bytes"};
    }
    result.image = load_geometry(body);
  }
  return result;
}

parsed<trailer> parse_trailer(byte_view body) {
  if (body.size() < commonTrailerSize) {
    return refusal{"a trailer of less than 4 bytes"};
  }
  trailer result{.type = type_at_start(body)};
  if (body.size() < trailer_size(result.type)) {
    return refusal{"a trailer that is too short for its payload type"};
  }
  if (has_geometry(result.type)) {
    result.height = load<std::uint32_t>(body, 4);
  }
  if (result.type == payload_type::chunk_data) {
    result.payloadSize = load<std::uint32_t>(body, 4);
  }
  if (result.type == payload_type::image_with_chunks) {
    result.chunkSize = load<std::uint32_t>(body, 8);
    result.chunkLayoutId = load<std::uint32_t>(body, 12);
  }
  return result;
}

leader_packet make_leader(packet_header header, const leader& body) {
  header.format = packet_format::leader;
  auto packet = begin_packet<leader_packet>(header);
  put_type(packet, body.type);
  packet.put(body.timestamp);
  if (has_geometry(body.type)) {
    put_geometry(packet, body.image);
  }
  return packet;
}

trailer_packet make_trailer(packet_header header, const trailer& body) {
  header.format = packet_format::trailer;
  auto packet = begin_packet<trailer_packet>(header);
  put_type(packet, body.type);
  if (has_geometry(body.type)) {
    packet.put(body.height);
  }
  if (body.type == payload_type::chunk_data) {
    packet.put(body.payloadSize);
  }
  if (body.type == payload_type::image_with_chunks) {
    packet.put(body.chunkSize);
    packet.put(body.chunkLayoutId);
  }
  return packet;
}

}  // namespace gige_protocol
