// Wireshark as an independent reader of what this code writes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

#include "platform/gige_protocol/gvcp.h"
#include "tests/gige_protocol/pcap.h"
#include "tests/gige_protocol/samples.h"

namespace gige_protocol {
namespace {

constexpr std::uint16_t clientPort = 40000;
constexpr std::uint16_t streamPort = 50000;

captured on_its_way(const sample& each) {
  if (each.rewrite == rewrite_command) {
    return {clientPort, controlPort, each.bytes};
  }
  return {controlPort, each.rewrite == rewrite_acknowledge ? clientPort : streamPort, each.bytes};
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
  std::vector<captured> datagrams;
  std::ranges::transform(samples, std::back_inserter(datagrams), on_its_way);
  const auto file = std::filesystem::temp_directory_path() / ("gige_protocol." + std::to_string(getpid()));
  write_pcap(file, datagrams);

  std::istringstream matching(output_of("tshark -r " + file.string() +
                                        " -d udp.port==" + std::to_string(streamPort) +
                                        ",gvsp -T fields -e frame.number -Y '" + filter_of(samples) + "'"));
  const std::set<std::size_t> matches{std::istream_iterator<std::size_t>(matching), {}};
  for (std::size_t place = 0; place < samples.size(); ++place) {
    EXPECT_TRUE(matches.contains(place + 1)) << samples[place].name << " is not " << samples[place].filter;
  }
  std::filesystem::remove(file);
}

}  // namespace
}  // namespace gige_protocol
