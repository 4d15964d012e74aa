#include "tests/gige/stream/stream_packets.h"

#include <array>

namespace gige {

using gige_protocol::packet_format;
using gige_protocol::payload_type;

std::uint8_t content(std::uint64_t frame, std::size_t offset) {
  return static_cast<std::uint8_t>(frame * 31 + offset * 7 + (offset >> 8U) * 13);
}

namespace {

std::uint64_t payload_of(std::uint64_t frame, const sent_stream& of) {
  const std::uint64_t chunks = of.setup.payloadBytes - lay_out(of.setup).imageBytes;
  return of.setup.payloadBytes - (of.type == payload_type::image ? 0 : chunks * (frame % 3) / 2);
}

}  // namespace

sent_packet true_packet(std::uint64_t frame, std::uint32_t number, const sent_stream& of) {
  const frame_layout layout = lay_out(of.setup);
  const std::uint64_t payload = payload_of(frame, of);
  const auto last =
      static_cast<std::uint32_t>(gige_protocol::payload_packet_count(payload, layout.bytesPerPacket));
  sent_packet packet{.header = {.ids = of.setup.ids, .blockId = frame, .packetId = number}};
  packet.leader = {.type = of.type, .timestamp = frame * 1000, .image = {}};
  packet.leader.image = {
      .pixelFormat = of.setup.pixelFormat, .width = of.setup.width, .height = of.setup.height};
  packet.trailer = {
      .type = of.type, .height = of.setup.height, .payloadSize = static_cast<std::uint32_t>(payload)};
  packet.header.format = number == 0     ? packet_format::leader
                         : number > last ? packet_format::trailer
                                         : packet_format::payload;
  packet.bytes = number < last ? layout.bytesPerPacket : payload - (last - 1) * layout.bytesPerPacket;
  return packet;
}

std::uint32_t packets_of(std::uint64_t frame, const sent_stream& of) {
  std::uint32_t number = 0;
  while (true_packet(frame, number, of).header.format != packet_format::trailer) {
    ++number;
  }
  return number + 1;
}

std::vector<std::uint8_t> bytes_of(const sent_packet& packet, const frame_layout& layout) {
  const auto copy = [&](gige_protocol::byte_view all) {
    return std::vector<std::uint8_t>(all.begin(),
                                     all.end() - static_cast<std::ptrdiff_t>(packet.cut % cutToRunt));
  };
  std::vector<std::uint8_t> bytes;
  if (packet.header.format == packet_format::leader) {
    bytes = copy(make_leader(packet.header, packet.leader).view());
  } else if (packet.header.format == packet_format::trailer) {
    bytes = copy(make_trailer(packet.header, packet.trailer).view());
  } else {
    std::array<std::uint8_t, gige_protocol::extendedHeaderSize> header{};
    bytes.assign(header.begin(),
                 header.begin() + static_cast<std::ptrdiff_t>(store_packet_header(packet.header, header)));
    for (std::size_t index = 0; index < packet.bytes; ++index) {
      bytes.push_back(content(packet.header.blockId, layout.offset_of(packet.header.packetId) + index));
    }
  }
  bytes.resize(packet.cut == cutToRunt ? 4 : bytes.size());
  return bytes;
}

}  // namespace gige
