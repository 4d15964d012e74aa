// Frames as a video stream.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "host/outputs/video.h"
#include "tests/host/support.h"
#include "tests/program.h"

namespace {

using tests::frame_of;
using tests::host_files;

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tests::content;
using tests::has;

TEST_F(host_files, y4m_is_a_stream_of_one_size) {
  const fs::path path = directory / "v.y4m";
  const auto frame = frame_of(6, 2);
  const std::string pixels(frame.pixels.begin(), frame.pixels.end());
  {
    host::y4m_stream stream(path, 29.97, false);
    stream.write(frame, {});
    stream.write(frame, {});
    EXPECT_THROW(stream.write(frame_of(2, 6), {}), host::output_error);
  }
  EXPECT_EQ(content(path), "YUV4MPEG2 W6 H2 F29970:1000 Ip A1:1 Cmono XCOLORRANGE=FULL\nFRAME\n" + pixels +
                               "FRAME\n" + pixels);
  EXPECT_THROW(host::y4m_stream(path, 1, false), host::output_error) << "a file was overwritten unasked";
  host::y4m_stream(path, 1, true);
  EXPECT_EQ(content(path), "");
  host::y4m_stream full("/dev/full", 1, false);
  try {
    full.write(frame, {});
    ADD_FAILURE() << "a full disk was not noticed";
  } catch (const host::output_error& error) {
    EXPECT_TRUE(has(error.what(), "the disk is full")) << error.what();
  }
  // A pipe without a reader, and with one that reads nothing.
  const fs::path pipe = directory / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  host::y4m_stream stream(pipe, 1, false);
  EXPECT_THROW(stream.write(frame, {}), host::output_error);
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
  stream.write(frame, {});
  std::stop_source stop;
  const std::jthread stopper([&] {
    std::this_thread::sleep_for(50ms);
    stop.request_stop();
  });
  auto large = frame_of(6, 2);
  large.pixels.resize(1U << 20U);  // more than a pipe holds
  EXPECT_THROW(stream.write(large, stop.get_token()), host::output_error);
  close(reader);
}

}  // namespace
