// What several of the host's tests use.
#ifndef TESTS_HOST_SUPPORT_H
#define TESTS_HOST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "host/outputs/frame_writer.h"

namespace tests {

// A directory of its own for each test, and away with it.
class host_files : public testing::Test {
 protected:
  host_files() {
    std::string name = std::filesystem::temp_directory_path() / "host_test.XXXXXX";
    directory = mkdtemp(name.data());
  }
  ~host_files() override { std::filesystem::remove_all(directory); }

  std::filesystem::path directory;
};

// A configuration of one camera, for a test to add to.
inline const std::string kCamera = R"([[camera]]
serial = "SIM00001"
frame_rate_hz = 50
width = 320
height = 240
exposure_us = 5000
gain_db = 0
)";

inline host::cam_frame_info info_of(std::uint16_t width, std::uint16_t height) {
  return {
      .timestampUs = 7, .exposureUs = 5000.5F, .gainDb = 6, .width = width, .height = height, .format = 1};
}

inline host::stored_frame frame_of(std::uint16_t width, std::uint16_t height) {
  host::stored_frame frame{.info = info_of(width, height), .number = 9, .arrivalUs = 8, .pixels = {}};
  for (int at = 0; at < width * height; ++at) {
    frame.pixels.push_back(static_cast<std::uint8_t>(at * 37));
  }
  return frame;
}

}  // namespace tests

#endif
