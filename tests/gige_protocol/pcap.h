// Capture files, as far as the tests need them.
#ifndef TESTS_GIGE_PROTOCOL_PCAP_H
#define TESTS_GIGE_PROTOCOL_PCAP_H

#include <cstdint>
#include <filesystem>
#include <vector>

#include "tests/gige_protocol/rewrite.h"

namespace gige_protocol {

struct captured {
  std::uint16_t sourcePort;
  std::uint16_t destinationPort;
  byte_vector payload;
};

// UDP datagrams of an Ethernet capture. Raises std::runtime_error when there is none.
std::vector<captured> read_pcap(const std::filesystem::path& file);
// Writes a capture of IP packets.
void write_pcap(const std::filesystem::path& file, const std::vector<captured>& datagrams);

}  // namespace gige_protocol

#endif
