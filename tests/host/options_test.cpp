// The command line.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <map>

#include "host/options.h"
#include "tests/program.h"

namespace {

TEST(options, are_refused_at_their_boundaries) {
  struct {
    std::vector<const char*> arguments;
    int exitCode;  // -1: accepted
  } const cases[] = {
      {{}, 2},
      {{"--help"}, 0},
      {{"--version"}, 0},
      {{"walk"}, 2},
      {{"run"}, 2},
      {{"run", "c"}, -1},
      {{"cameras"}, -1},
      {{"config"}, -1},
      {{"validate", "c"}, -1},
      {{"run", "-c", "A", "-c", "B", "c"}, -1},
      {{"run", "c", "-n", "1"}, -1},
      {{"run", "c", "-n", "0"}, 2},
      {{"run", "c", "-n", "1.5"}, 2},
      {{"run", "c", "-n", "-1"}, 2},
      {{"run", "c", "-t", "0.001"}, -1},
      {{"run", "c", "-t", "0"}, 2},
      {{"run", "c", "-t", "nan"}, 2},
      {{"run", "c", "-t", "1s"}, 2},
      {{"run", "c", "-e", "0"}, 2},
      {{"run", "c", "-r", "d", "-k", "30min", "-k", "2TB", "-k", "free=20GB"}, -1},
      {{"run", "c", "-k", "7d"}, 2},
      {{"run", "c", "-r", "d", "-k", "7"}, 2},
      {{"run", "c", "-r", "d", "-k", "7weeks"}, 2},
      {{"run", "c", "-r", "d", "-k", "free=7d"}, 2},
      {{"run", "c", "--max-failures", "0"}, 2},
      {{"run", "c", "-f", "raw"}, -1},
      {{"run", "c", "-f", "jpg"}, 2},
      {{"run", "c", "-m", "65535"}, -1},
      {{"run", "c", "-m", "65536"}, 2},
      {{"run", "c", "-m", "localhost:x"}, 2},
      {{"run", "c", "-l", "5"}, -1},
      {{"run", "c", "-l", "6"}, 2},
      {{"run", "c", "-l", "loud"}, 2},
      {{"check", "c", "-n", "1"}, 2},
      {{"features"}, 2},
      {{"features", "A", "Gain=1", "Width"}, -1},
      {{"config", "A"}, -1},
      {{"address", "A", "10.0.0.1/24"}, -1},
      {{"address", "A", "10.0.0.1/255.255.255.0"}, -1},
      {{"address", "A", "10.0.0.0/24"}, 2},
      {{"address", "A", "10.0.0.255/24"}, 2},
      {{"address", "A", "10.0.0.1/255.0.255.0"}, 2},
      {{"address", "A", "10.0.0.1"}, 2},
      {{"run", "c", "--unknown"}, 2},
  };
  for (const auto& each : cases) {
    std::vector<const char*> arguments = {"mediagrabber"};
    arguments.insert(arguments.end(), each.arguments.begin(), each.arguments.end());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const auto line = host::parse_command_line(static_cast<int>(arguments.size()), arguments.data());
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string error = testing::internal::GetCapturedStderr();
    EXPECT_EQ(line.exitCode.value_or(-1), each.exitCode) << fmt::format("{}", fmt::join(arguments, " "));
    EXPECT_EQ(out.empty(), each.exitCode != 0);
    EXPECT_EQ(error.empty(), each.exitCode != 2);
  }
}

TEST(options, tell_what_a_mistyped_word_was_probably_meant_to_be) {
  const std::map<std::vector<const char*>, std::string> cases = {
      {{"rnu", "c"}, "unknown command 'rnu', did you mean 'run'?"},
      {{"frobnicate"}, "unknown command 'frobnicate'\n"},
      {{"run", "c", "--fraems", "3"}, "unknown option '--fraems', did you mean '--frames'?"},
      {{"run", "c", "d"}, "unknown word 'd'"},
      {{"run", "c", "-f", "jpg"}, "--format: jpg not in {pgm,png,raw}"},
      {{"run", "c", "--web-read-only"}, "--web-read-only requires --web"},
      {{"run", "c", "--web", "1", "--web-cert", "x"}, "--web-cert requires --web-key"},
      {{"run", "c", "-n", "0"}, "--frames: Value 0 not in range 1 to"}};
  for (const auto& [arguments, text] : cases) {
    std::vector<const char*> all = {"mediagrabber"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    testing::internal::CaptureStderr();
    host::parse_command_line(static_cast<int>(all.size()), all.data());
    const std::string error = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(tests::has(error, text)) << error;
  }
}

TEST(options, metrics_are_loopback_unless_asked_otherwise) {
  const std::map<std::string, std::pair<std::string, int>> cases = {{"9100", {"127.0.0.1", 9100}},
                                                                    {":9100", {"127.0.0.1", 9100}},
                                                                    {"0.0.0.0:1", {"0.0.0.0", 1}},
                                                                    {"[::1]:0", {"::1", 0}}};
  for (const auto& [text, expected] : cases) {
    const std::array arguments = {"mediagrabber", "run", "c", "-vv", "--metrics", text.c_str()};
    const auto line = host::parse_command_line(static_cast<int>(arguments.size()), arguments.data());
    ASSERT_TRUE(line.value.metrics) << text;
    EXPECT_EQ(line.value.metrics->address, expected.first);
    EXPECT_EQ(line.value.metrics->port, expected.second);
    EXPECT_EQ(line.value.logLevel, 5);
  }
}

}  // namespace
