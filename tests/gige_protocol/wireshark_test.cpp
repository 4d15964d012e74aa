// Wireshark as an independent reader of what this code writes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

#include "platform/gige_protocol/gvcp.h"
#include "platform/gige_protocol/gvsp.h"
#include "tests/gige_protocol/samples.h"

namespace gige_protocol {
namespace {

constexpr std::uint16_t clientPort = 40000;
constexpr std::uint16_t streamPort = 50000;

struct ports {
  std::uint16_t source;
  std::uint16_t destination;
};
ports ports_of(const sample& each) {
  if (each.rewrite == rewrite_command) {
    return {clientPort, controlPort};
  }
  return {controlPort, each.rewrite == rewrite_acknowledge ? clientPort : streamPort};
}

// A capture of IP packets. The file's own numbers are those of this machine, which its first number tells.
void write_capture(const std::filesystem::path& file, const std::vector<sample>& samples) {
  std::ofstream out(file, std::ios::binary);
  const auto write = [&out](const auto& bytes) {
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size() * sizeof bytes[0]));
  };
  constexpr std::uint32_t version = 2 | 4U << 16U;
  constexpr std::uint32_t rawIp = 101;
  write(std::array<std::uint32_t, 6>{0xa1b2c3d4, version, 0, 0, 65535, rawIp});
  for (const sample& each : samples) {
    const auto udpSize = static_cast<std::uint16_t>(udpHeaderSize + each.bytes.size());
    const auto size = static_cast<std::uint16_t>(ipHeaderSize + udpSize);
    write(std::array<std::uint32_t, 4>{0, 0, size, size});
    byte_buffer<ipHeaderSize + udpHeaderSize> headers;
    headers.put(std::uint16_t{0x4500});  // version 4, a header of 5 words
    headers.put(size);
    headers.put_zeros(4);
    headers.put(std::uint16_t{0x4011});  // time to live, UDP
    headers.put_zeros(2);
    headers.put(std::uint32_t{0x0a010001});
    headers.put(std::uint32_t{0x0a010203});
    headers.put(ports_of(each).source);
    headers.put(ports_of(each).destination);
    headers.put(udpSize);
    headers.put_zeros(2);
    write(headers.view());
    write(each.bytes);
  }
}

// True for the frames of a capture that are what the samples say; frames count from 1.
std::string filter_of(const std::vector<sample>& samples) {
  std::string filter;
  for (std::size_t place = 0; place < samples.size(); ++place) {
    filter += (filter.empty() ? "" : " || ") + ("(frame.number==" + std::to_string(place + 1)) +
              " && !_ws.malformed && " + samples[place].filter + ")";
  }
  return filter;
}

// What a command writes to its standard output; nothing where it failed.
std::string output_of(const std::string& command) {
  std::string text;
  FILE* const pipe = popen(command.c_str(), "r");
  for (int character = 0; pipe != nullptr && (character = std::fgetc(pipe)) != EOF;) {
    text += static_cast<char>(character);
  }
  return pipe != nullptr && pclose(pipe) == 0 ? text : "";
}

TEST(Wireshark, reads_every_message_as_what_it_is) {
  const auto samples = every_message();
  const auto file = std::filesystem::temp_directory_path() / ("gige_protocol." + std::to_string(getpid()));
  write_capture(file, samples);

  std::istringstream matching(output_of("tshark -r " + file.string() +
                                        " -d udp.port==" + std::to_string(streamPort) +
                                        ",gvsp -T fields -e frame.number -Y '" + filter_of(samples) + "'"));
  const std::set<std::size_t> matches{std::istream_iterator<std::size_t>(matching), {}};
  for (std::size_t place = 0; place < samples.size(); ++place) {
    EXPECT_TRUE(matches.contains(place + 1)) << samples[place].filter;
  }
  std::filesystem::remove(file);
}

}  // namespace
}  // namespace gige_protocol
