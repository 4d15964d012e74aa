// One datagram of each kind that this protocol code writes, and how an independent reader must see it.
#ifndef TESTS_GIGE_PROTOCOL_SAMPLES_H
#define TESTS_GIGE_PROTOCOL_SAMPLES_H

#include <vector>

#include "platform/gige_protocol/parsed.h"
#include "tests/gige_protocol/rewrite.h"

namespace gige_protocol {

struct sample {
  const char* name;  // for the messages of a failing test
  parsed<byte_vector> (*rewrite)(byte_view);
  byte_vector bytes;
  const char* filter;  // Wireshark's display filter that is true for it
};

// Acknowledges follow their commands, as Wireshark looks a register's address up in the command.
std::vector<sample> every_message();

}  // namespace gige_protocol

#endif
