#include "tests/gige_protocol/pcap.h"

#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "platform/gige_protocol/gvsp.h"

namespace gige_protocol {
namespace {

// The file's own numbers are those of this machine, which its first number tells.
struct file_head {
  std::uint32_t magic = 0xa1b2c3d4;
  std::uint16_t major = 2;
  std::uint16_t minor = 4;
  std::uint32_t zone = 0;
  std::uint32_t accuracy = 0;
  std::uint32_t longest = 65535;
  std::uint32_t link = 101;  // no link layer: the first byte is that of the IP head
};
struct packet_record {
  std::uint32_t seconds = 0;
  std::uint32_t microseconds = 0;
  std::uint32_t captured = 0;
  std::uint32_t size = 0;
};
constexpr std::size_t ethernetHeadSize = 14;

}  // namespace

std::vector<captured> read_pcap(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
  std::vector<captured> result;
  std::size_t place = sizeof(file_head);
  while (place + sizeof(packet_record) <= bytes.size()) {
    packet_record record;
    std::memcpy(&record, &bytes[place], sizeof(record));
    place += sizeof(record);
    const byte_vector packet(&bytes.at(place), &bytes.at(place) + record.captured);
    place += record.captured;
    const std::size_t udp = ethernetHeadSize + ipHeadSize;
    result.push_back({.sourcePort = load<std::uint16_t>(packet, udp),
                      .destinationPort = load<std::uint16_t>(packet, udp + 2),
                      .payload = {packet.begin() + udp + udpHeadSize, packet.end()}});
  }
  if (result.empty()) {
    throw std::runtime_error("no packets in " + file.string());
  }
  return result;
}

void write_pcap(const std::filesystem::path& file, const std::vector<captured>& datagrams) {
  std::ofstream out(file, std::ios::binary);
  const auto write = [&out](const auto& item) {
    out.write(reinterpret_cast<const char*>(&item), sizeof(item));
  };
  write(file_head{});
  for (const captured& each : datagrams) {
    const auto udpSize = static_cast<std::uint16_t>(udpHeadSize + each.payload.size());
    const auto size = static_cast<std::uint16_t>(ipHeadSize + udpSize);
    byte_buffer<ipHeadSize + udpHeadSize> heads;
    heads.put(std::uint16_t{0x4500});  // version 4, a head of 5 words
    heads.put(size);
    heads.put_zeros(4);
    heads.put(std::uint16_t{0x4011});  // time to live, UDP
    heads.put_zeros(2);
    heads.put(std::uint32_t{0x0a010001});
    heads.put(std::uint32_t{0x0a010203});
    heads.put(each.sourcePort);
    heads.put(each.destinationPort);
    heads.put(udpSize);
    heads.put_zeros(2);
    write(packet_record{.captured = size, .size = size});
    out.write(reinterpret_cast<const char*>(heads.data()), static_cast<std::streamsize>(heads.size()));
    out.write(reinterpret_cast<const char*>(each.payload.data()),
              static_cast<std::streamsize>(each.payload.size()));
  }
}

}  // namespace gige_protocol
