#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>

#include "platform/gige_protocol/gvcp.h"
#include "platform/gige_protocol/gvsp.h"
#include "tests/gige_protocol/samples.h"

namespace gige_protocol {
namespace {

using ::testing::HasSubstr;

TEST(Protocol, takes_whole_messages_only_and_writes_them_again) {
  for (const sample& each : every_message()) {
    const auto again = each.rewrite(each.bytes);
    ASSERT_TRUE(again) << each.filter << ": " << again.reason();
    EXPECT_EQ(*again, each.bytes) << each.filter;
    for (std::size_t size = 0; size < each.bytes.size(); ++size) {
      EXPECT_FALSE(each.rewrite(byte_view(each.bytes).first(size)))
          << each.filter << " of " << size << " bytes";
    }
  }
}

// A sender that is wrong, but agrees with itself: the length field of its message is right. What a parser
// then reads behind the message is seen by the address sanitizer.
TEST(Protocol, reads_nothing_behind_a_message_that_is_too_short) {
  for (const sample& each : every_message()) {
    for (std::size_t size = messageHeaderSize; size < each.bytes.size() && each.rewrite != rewrite_packet;
         ++size) {
      byte_vector brief(each.bytes.begin(), each.bytes.begin() + static_cast<std::ptrdiff_t>(size));
      store(brief, 4, static_cast<std::uint16_t>(size - messageHeaderSize));
      const auto again = each.rewrite(brief);
      EXPECT_TRUE(!again || *again == brief) << each.filter << " of " << size << " bytes";
    }
  }
}

struct captured {
  std::uint16_t sourcePort;
  std::uint16_t destinationPort;
  byte_vector payload;
};

// The UDP datagrams of a capture on Ethernet: one of each message between Debian's Aravis tools and its
// camera (captures/record).
std::vector<captured> read_capture() {
  constexpr std::size_t fileHeader = 24;
  constexpr std::size_t recordHeader = 16;
  constexpr std::size_t udp = 14 + ipHeaderSize;
  std::ifstream in(CAPTURES "/arv-tools.pcap", std::ios::binary);
  const byte_vector bytes{std::istreambuf_iterator<char>(in), {}};
  std::vector<captured> result;
  for (std::size_t place = fileHeader; place + recordHeader <= bytes.size();) {
    std::uint32_t size = 0;
    std::memcpy(&size, &bytes[place + 8], sizeof size);
    const byte_view packet = byte_view(bytes).subspan(place + recordHeader, size);
    const byte_view payload = packet.subspan(udp + udpHeaderSize);
    result.push_back({load<std::uint16_t>(packet, udp),
                      load<std::uint16_t>(packet, udp + 2),
                      {payload.begin(), payload.end()}});
    place += recordHeader + size;
  }
  return result;
}

TEST(Protocol, reads_and_writes_what_others_sent_each_other) {
  const auto rewrite = [](const captured& each) {
    return each.destinationPort == controlPort ? rewrite_command(each.payload)
           : each.sourcePort == controlPort    ? rewrite_acknowledge(each.payload)
                                               : rewrite_packet(each.payload);
  };
  const auto datagrams = read_capture();
  EXPECT_EQ(datagrams.size(), 12U);
  for (const captured& each : datagrams) {
    const auto again = rewrite(each);
    ASSERT_TRUE(again) << again.reason();
    EXPECT_EQ(*again, each.payload);
  }
}

struct bad_message {
  parsed<byte_vector> (*rewrite)(byte_view);
  byte_vector bytes;
  const char* reason;
};

TEST(Protocol, says_what_is_wrong_with_a_message) {
  const bad_message cases[] = {
      {rewrite_command, {0x41, 1, 0, 2, 0, 0, 0, 1}, "without the key"},
      {rewrite_command, {0x42, 1, 0, 2, 0, 0, 0, 0}, "request id 0"},
      {rewrite_command, {0x42, 1, 0, 2, 0, 0, 0, 1, 0}, "length field contradicts"},
      {rewrite_command, {0x42, 1, 0, 0x80, 0, 0, 0, 1}, "READREG"},
      {rewrite_command, {0x42, 1, 0, 0x82, 0, 4, 0, 1, 0, 0, 9, 0x38}, "one address and value"},
      {rewrite_command, {0x42, 1, 0, 0x84, 0, 8, 0, 1, 0, 0, 0, 0, 0, 0, 2, 28}, "1 to 536 bytes"},
      {rewrite_command,
       {0x42, 0, 0, 0x40, 0, 12, 0, 1, 0, 0, 0, 9, 0, 0, 0, 5, 0, 0, 0, 4},
       "behind its last"},
      {rewrite_command,
       {0x42, 0x10, 0, 0x40, 0, 12, 0, 1, 0, 0, 0, 9, 0, 0, 0, 4, 0, 0, 0, 5},
       "extended ids"},
      {rewrite_command, {0x42, 1, 0, 0xc0, 0, 0, 0, 1}, "EVENT"},
      {rewrite_command, {0x42, 1, 0x12, 0x34, 0, 0, 0, 1}, "unknown command"},
      {rewrite_command, byte_vector(largestMessage + 1), "larger than 548 bytes"},
      {rewrite_acknowledge, {0, 0, 0, 3, 0, 0, 0, 0}, "request id 0"},
      {rewrite_packet, {0, 0, 0, 1, 0x81, 0, 0, 0}, "extended header"},
      {rewrite_packet, {0, 0, 0, 1, 2, 0, 0, 9, 0, 0, 0x40, 1, 0, 0, 0, 1}, "too short for its payload type"},
  };
  for (const bad_message& each : cases) {
    const auto again = each.rewrite(each.bytes);
    ASSERT_FALSE(again) << each.reason;
    EXPECT_THAT(again.reason(), HasSubstr(each.reason));
  }
}

TEST(Protocol, raises_rather_than_write_more_than_a_message_holds) {
  const std::vector<std::uint32_t> addresses(mostRegistersRead + 1);
  EXPECT_EQ(make_read_registers(1, std::span(addresses).first(mostRegistersRead)).size(), largestMessage);
  EXPECT_THROW(make_read_registers(1, addresses), std::length_error);
  const byte_vector bytes(largestMemoryBlock + 1);
  EXPECT_EQ(make_memory(1, {.address = 0, .bytes = byte_view(bytes).subspan(1)}).size(), largestMessage);
  EXPECT_THROW(make_write_memory(1, {.address = 0, .bytes = bytes}), std::length_error);
}

// Names of cameras end up on terminals, where control characters do harm.
TEST(Protocol, cleans_the_texts_of_a_camera) {
  using namespace std::string_view_literals;
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"left", "left"},
      {"0123456789abcdefgh", "0123456789abcdef"},
      {"a\0b"sv, "a"},
      {"\x1b[2J\r\n\t\x7f", "?[2J????"},
      {"K\xc3\xb6ln \x9b", "K??ln ?"},
      {"", ""},
  };
  for (const auto& [raw, clean] : cases) {
    EXPECT_EQ(fixed_text<16>(raw).view(), clean);
  }
}

TEST(Protocol, counts_blocks_across_the_wrap) {
  constexpr std::uint64_t last = std::numeric_limits<std::uint64_t>::max();
  struct {
    std::uint64_t from, to;
    id_mode mode;
    std::int64_t distance;
  } const cases[] = {
      {1, 1, id_mode::standard, 0},          {1, 3, id_mode::standard, 2},
      {3, 1, id_mode::standard, -2},         {65535, 1, id_mode::standard, 1},
      {2, 65534, id_mode::standard, -3},     {1, 32768, id_mode::standard, 32767},
      {1, 32769, id_mode::standard, -32767}, {65535, 65536, id_mode::extended, 1},
      {last, 1, id_mode::extended, 1},       {2, last - 1, id_mode::extended, -3},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(block_distance(each.from, each.to, each.mode), each.distance) << each.from << " " << each.to;
  }
  EXPECT_EQ(next_block_id(65535, id_mode::standard), 1U);
  EXPECT_EQ(next_block_id(65535, id_mode::extended), 65536U);
  EXPECT_EQ(next_block_id(last, id_mode::extended), 1U);
  EXPECT_EQ(next_request_id(65535), 1U);
}

TEST(Protocol, packs_a_frame_into_packets) {
  EXPECT_EQ(payload_per_packet(1500, id_mode::standard), 1464U);
  EXPECT_EQ(payload_per_packet(9000, id_mode::extended), 8952U);
  EXPECT_EQ(payload_per_packet(36, id_mode::standard), 0U);
  EXPECT_EQ(payload_packet_count(0, 1464), 0U);
  EXPECT_EQ(payload_packet_count(1464, 1464), 1U);
  EXPECT_EQ(payload_packet_count(1465, 1464), 2U);
}

TEST(Protocol, names_what_it_does_not_handle) {
  EXPECT_STREQ(name_of(payload_type{0x4006}), "JPEG image with chunks");
  EXPECT_STREQ(name_of(payload_type{0x0777}), "unknown payload");
  EXPECT_STREQ(name_of(packet_format{15}), "unknown format");
  EXPECT_STREQ(text_of(status{0x9000}), "unknown status");
}

}  // namespace
}  // namespace gige_protocol
