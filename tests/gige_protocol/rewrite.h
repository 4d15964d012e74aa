// Datagrams that are read and written again: what comes out must be what went in, but for reserved bits.
#ifndef TESTS_GIGE_PROTOCOL_REWRITE_H
#define TESTS_GIGE_PROTOCOL_REWRITE_H

#include <cstdint>
#include <vector>

#include "platform/gige_protocol/bytes.h"
#include "platform/gige_protocol/parsed.h"

namespace gige_protocol {

using byte_vector = std::vector<std::uint8_t>;

// One for each thing that a datagram may be taken for. They give the parsers' refusals.
parsed<byte_vector> rewrite_command(byte_view bytes);
parsed<byte_vector> rewrite_acknowledge(byte_view bytes);
parsed<byte_vector> rewrite_packet(byte_view bytes);

}  // namespace gige_protocol

#endif
