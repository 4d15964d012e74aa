// One datagram of each kind that this protocol code writes, and how an independent reader must see it.
#ifndef TESTS_GIGE_PROTOCOL_SAMPLES_H
#define TESTS_GIGE_PROTOCOL_SAMPLES_H

#include <cstdint>
#include <vector>

#include "platform/gige_protocol/bytes.h"
#include "platform/gige_protocol/parsed.h"

namespace gige_protocol {

using byte_vector = std::vector<std::uint8_t>;

// Reads a datagram and writes it again: what comes out must be what went in, but for reserved bits. Gives the
// parser's refusal.
using rewriter = parsed<byte_vector> (*)(byte_view);
parsed<byte_vector> rewrite_command(byte_view bytes);
parsed<byte_vector> rewrite_acknowledge(byte_view bytes);
parsed<byte_vector> rewrite_packet(byte_view bytes);

struct sample {
  rewriter rewrite;
  byte_vector bytes;
  const char* filter;  // Wireshark's display filter that is true for it
};

// Acknowledges follow their commands, as Wireshark looks a register's address up in the command.
std::vector<sample> every_message();

}  // namespace gige_protocol

#endif
