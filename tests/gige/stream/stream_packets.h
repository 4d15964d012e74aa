// Packets as cameras send them, and as they should not.
#ifndef TESTS_GIGE_STREAM_STREAM_PACKETS_H
#define TESTS_GIGE_STREAM_STREAM_PACKETS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/gige/stream/frame_layout.h"
#include "platform/gige_protocol/gvsp.h"

namespace gige {

// A packet as its sender meant it. Leaders and trailers have the body of that name, all others bytes.
struct sent_packet {
  gige_protocol::packet_header header{};
  gige_protocol::leader leader{};
  gige_protocol::trailer trailer{};
  std::size_t bytes = 0;  // of the body
  std::size_t cut = 0;    // bytes that its end was shortened by: 0 to 4, or cutToRunt
};
constexpr std::size_t cutToRunt = 1000;  // not even a header is left

// The pixels of each frame are made from its number, and chunks as well.
std::uint8_t content(std::uint64_t frame, std::size_t offset);

// What a camera sends. Its frames are of varying length where chunks make that possible.
struct sent_stream {
  assembly_setup setup;
  gige_protocol::payload_type type = gige_protocol::payload_type::image;
};
sent_packet true_packet(std::uint64_t frame, std::uint32_t number, const sent_stream& of);
std::uint32_t packets_of(std::uint64_t frame, const sent_stream& of);

// As it is on the wire.
std::vector<std::uint8_t> bytes_of(const sent_packet& packet, const frame_layout& layout);

}  // namespace gige

#endif
