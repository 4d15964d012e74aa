// GVSP, the streaming protocol of GigE Vision: a frame is a leader, its payload in packets, and a trailer,
// one UDP datagram each.
//
// The frame's number is the "block id". Packets of a frame are numbered from 0: the leader is 0, the payload
// follows from 1 on, the trailer is the last one. All but the last payload packet carry the same number of
// bytes. There are two forms of the header ("id modes"), the standard one with 16-bit block ids and, from
// version 2.0 on, the extended one. Nothing here keeps state, so everything may be called from any thread.
#ifndef PLATFORM_GIGE_PROTOCOL_GVSP_H
#define PLATFORM_GIGE_PROTOCOL_GVSP_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "platform/gige_protocol/bytes.h"
#include "platform/gige_protocol/parsed.h"
#include "platform/gige_protocol/status.h"

namespace gige_protocol {

// Sizes in bytes. The IP header is the one without options.
constexpr std::size_t ipHeaderSize = 20;
constexpr std::size_t udpHeaderSize = 8;

enum class id_mode : std::uint8_t {
  standard,  // block ids of 16 bits, packet ids of 24
  extended,  // block ids of 64 bits, packet ids of 32
};

constexpr std::size_t standardHeaderSize = 8;
constexpr std::size_t extendedHeaderSize = 20;
constexpr std::size_t header_size(id_mode mode) {
  return mode == id_mode::standard ? standardHeaderSize : extendedHeaderSize;
}

constexpr std::uint64_t largest_block_id(id_mode mode) {
  return mode == id_mode::standard ? 0xffffU : std::numeric_limits<std::uint64_t>::max();
}
constexpr std::uint32_t largest_packet_id(id_mode mode) {
  return mode == id_mode::standard ? 0xff'ffffU : std::numeric_limits<std::uint32_t>::max();
}

// The block id of the frame after that one: the largest is followed by 1, for 0 is no frame.
constexpr std::uint64_t next_block_id(std::uint64_t id, id_mode mode) {
  return id == largest_block_id(mode) ? 1 : id + 1;
}

// How many frames `to` comes after `from`, neither of them 0; negative when it comes before. Ids wrap, so the
// shorter way round counts: with 16 bits, block 2 is 3 frames after block 65534, since 65535 is followed
// by 1.
constexpr std::int64_t block_distance(std::uint64_t from, std::uint64_t to, id_mode mode) {
  const std::uint64_t ring = largest_block_id(mode);
  const std::uint64_t ahead = to >= from ? to - from : ring - (from - to);
  return ahead <= ring / 2 ? static_cast<std::int64_t>(ahead) : -static_cast<std::int64_t>(ring - ahead);
}

// Payload bytes of a full packet of that size, which counts the IP and UDP headers as register
// streamPacketSize does. 0 where the headers leave no room.
constexpr std::size_t payload_per_packet(std::size_t packetSize, id_mode mode) {
  const std::size_t headers = ipHeaderSize + udpHeaderSize + header_size(mode);
  return packetSize > headers ? packetSize - headers : 0;
}

// Payload packets of a frame, without leader and trailer. `perPacket` must not be 0.
constexpr std::uint64_t payload_packet_count(std::uint64_t payloadSize, std::size_t perPacket) {
  return payloadSize / perPacket + (payloadSize % perPacket != 0 ? 1 : 0);
}

// Four bits; these are the ones that have a meaning.
enum class packet_format : std::uint8_t {
  leader = 1,
  trailer = 2,
  payload = 3,
  all_in = 4,  // a whole small frame
  h264 = 5,
  multi_zone = 6,
  multi_part = 7,
  gendc = 8,
};

// In words, as "multi-zone payload"; "unknown format" for a number without a meaning. Never nullptr.
const char* name_of(packet_format format);

// Flags of an extended header. A standard header has none.
namespace packet_flags {
constexpr std::uint16_t resendRangeError = 1U << 2;  // some of the requested packets are not available
constexpr std::uint16_t previousBlockDropped = 1U << 1;
constexpr std::uint16_t resent = 1U << 0;
}  // namespace packet_flags

// What stands in front of every packet of a stream.
struct packet_header {
  status state = status::success;  // an error: the packet is nothing but this header
  std::uint16_t flags = 0;         // bits of packet_flags
  id_mode ids = id_mode::standard;
  packet_format format = packet_format::payload;
  std::uint64_t blockId = 0;  // 0: a test packet, whose content has no meaning
  std::uint32_t packetId = 0;

  constexpr std::size_t size() const { return header_size(ids); }
  constexpr bool is_test() const { return blockId == 0; }
  friend bool operator==(const packet_header&, const packet_header&) = default;
};

// Reads the header of a datagram, in whichever form it has. Inline, since it is done for each packet of a
// stream. Refuses what is too short; numbers without a meaning pass.
constexpr parsed<packet_header> parse_packet_header(byte_view datagram);

// Writes a header, as many bytes as the result says. Ids beyond what its form holds are cut.
std::size_t store_packet_header(const packet_header& header,
                                std::span<std::uint8_t, extendedHeaderSize> bytes);

// What a frame is made of. Any 16-bit number may come from the wire; these are the ones that have a meaning.
// A type with the bit `extendedChunkBit` has chunk data behind its payload.
enum class payload_type : std::uint16_t {
  image = 0x0001,
  raw_data = 0x0002,
  file = 0x0003,
  chunk_data = 0x0004,  // chunks only; the first one is the image
  extended_chunk_data = 0x0005,
  jpeg = 0x0006,
  jpeg2000 = 0x0007,
  h264 = 0x0008,
  multi_zone_image = 0x0009,
  multi_part = 0x000a,
  gendc = 0x000b,
  image_with_chunks = 0x4001,
};
constexpr std::uint16_t extendedChunkBit = 0x4000;
constexpr std::uint16_t deviceSpecificBit = 0x8000;

// In words, as "JPEG image" or "multi-part data"; "device-specific payload", "unknown payload". Never
// nullptr.
const char* name_of(payload_type type);

// Whether leaders of that type describe an image.
constexpr bool has_geometry(payload_type type) {
  return type == payload_type::image || type == payload_type::image_with_chunks;
}

// Pixels; `pixelFormat` is a code of the Pixel Format Naming Convention (0x01080001 is Mono8). Paddings are
// bytes: at the end of each line, and at the end of the image.
struct image_geometry {
  std::uint32_t pixelFormat = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t offsetX = 0;
  std::uint32_t offsetY = 0;
  std::uint16_t paddingX = 0;
  std::uint16_t paddingY = 0;

  friend bool operator==(const image_geometry&, const image_geometry&) = default;
};

struct leader {
  payload_type type = payload_type::image;
  std::uint64_t timestamp = 0;  // ticks of the camera's clock
  image_geometry image;         // all 0 unless has_geometry(type)

  friend bool operator==(const leader&, const leader&) = default;
};

// Read and write what follows a leader's header. Leaders of other than image types are read as far as they
// are all the same, which is type and timestamp. Refuses what is shorter than its type asks for.
parsed<leader> parse_leader(byte_view body);

struct trailer {
  payload_type type = payload_type::image;
  std::uint32_t height = 0;         // lines that were sent, where has_geometry(type)
  std::uint32_t payloadSize = 0;    // valid bytes of the payload, of chunk_data
  std::uint32_t chunkSize = 0;      // bytes of the chunk data behind the image, of image_with_chunks
  std::uint32_t chunkLayoutId = 0;  // changes with the layout of the chunks, of image_with_chunks

  friend bool operator==(const trailer&, const trailer&) = default;
};

// The same for a trailer; of other types, only the type is read.
parsed<trailer> parse_trailer(byte_view body);

// Whole packets: a header, whose format is set to fit, and a body.
constexpr std::size_t largestLeaderSize = 36;
using leader_packet = byte_buffer<extendedHeaderSize + largestLeaderSize>;
leader_packet make_leader(packet_header header, const leader& body);
constexpr std::size_t largestTrailerSize = 16;
using trailer_packet = byte_buffer<extendedHeaderSize + largestTrailerSize>;
trailer_packet make_trailer(packet_header header, const trailer& body);

// ---- Implementation

constexpr parsed<packet_header> parse_packet_header(byte_view datagram) {
  constexpr std::uint8_t extendedBit = 0x80;
  constexpr std::uint8_t formatMask = 0x0f;
  if (datagram.size() < standardHeaderSize) {
    return refusal{"a stream packet shorter than its header"};
  }
  packet_header header;
  header.state = static_cast<status>(load<std::uint16_t>(datagram, 0));
  header.format = static_cast<packet_format>(datagram[4] & formatMask);
  if ((datagram[4] & extendedBit) == 0) {
    header.blockId = load<std::uint16_t>(datagram, 2);
    header.packetId = load<std::uint32_t>(datagram, 4) & largest_packet_id(id_mode::standard);
    return header;
  }
  if (datagram.size() < extendedHeaderSize) {
    return refusal{"a stream packet shorter than its extended header"};
  }
  header.ids = id_mode::extended;
  header.flags = load<std::uint16_t>(datagram, 2);
  header.blockId = load<std::uint64_t>(datagram, 8);
  header.packetId = load<std::uint32_t>(datagram, 16);
  return header;
}

}  // namespace gige_protocol

#endif
