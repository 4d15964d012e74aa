// Packets as a packet ring shows them, before the system has looked at them.
#include "platform/gige/stream/packet_ring.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

/// An IP packet with a UDP datagram of four bytes from port 0x1234.
std::vector<std::uint8_t> packet(unsigned ipWords = 5, unsigned udpSize = 12) {
  std::vector<std::uint8_t> bytes(std::size_t{4} * ipWords);
  bytes[0] = static_cast<std::uint8_t>(0x40U | ipWords);
  const auto high = static_cast<std::uint8_t>(udpSize >> 8U);
  const auto low = static_cast<std::uint8_t>(udpSize);
  bytes.insert(bytes.end(), {0x12, 0x34, 0, 80, high, low, 0, 0, 'd', 'a', 't', 'a'});
  return bytes;
}

TEST(packet_of_a_ring, is_read_with_its_options_and_without_what_pads_it) {
  for (const unsigned words : {5U, 6U, 15U}) {
    auto bytes = packet(words);
    bytes.resize(bytes.size() + 10);
    const auto read = gige::read_datagram(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->sourcePort, 0x1234);
    EXPECT_EQ(std::string(read->content.begin(), read->content.end()), "data");
  }
}

TEST(packet_of_a_ring, is_none_when_it_is_cut_or_lies_about_its_sizes) {
  const auto whole = packet();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(gige::read_datagram({whole.data(), size})) << size;
  }
  EXPECT_FALSE(gige::read_datagram(packet(5, 13)));  // longer than what was captured
  EXPECT_FALSE(gige::read_datagram(packet(5, 7)));   // shorter than its header
  EXPECT_FALSE(gige::read_datagram(packet(4)));      // an IP header that is too short
  auto lies = packet();
  lies[0] = 0x4f;  // options up to the end of the packet and beyond
  EXPECT_FALSE(gige::read_datagram(lies));
}

}  // namespace
