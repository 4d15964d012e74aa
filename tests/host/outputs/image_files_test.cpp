// Frames as image files.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "core/time_helpers.h"
#include "host/outputs/image_files.h"
#include "tests/host/support.h"
#include "tests/program.h"

namespace {

using tests::frame_of;
using tests::host_files;

namespace fs = std::filesystem;
using tests::content;

TEST(recording, every_format_keeps_the_pixels) {
  const auto frame = frame_of(13, 5);
  EXPECT_EQ(host::encode(frame, host::image_format::raw), frame.pixels);
  const auto pgm = host::encode(frame, host::image_format::pgm);
  const std::string pixels(frame.pixels.begin(), frame.pixels.end());
  EXPECT_EQ(std::string(pgm.begin(), pgm.end()), "P5\n13 5\n255\n" + pixels);

  const auto png = host::encode(frame, host::image_format::png);
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_NE(png_image_begin_read_from_memory(&image, png.data(), png.size()), 0);
  EXPECT_EQ(image.format, static_cast<png_uint_32>(PNG_FORMAT_GRAY));
  std::vector<std::uint8_t> read(PNG_IMAGE_SIZE(image));
  ASSERT_NE(png_image_finish_read(&image, nullptr, read.data(), 0, nullptr), 0);
  EXPECT_EQ(read, frame.pixels);
}

class recorded_images : public host_files {
 protected:
  host::image_files files(const host::keep_limits& keep = {}) const {
    return {directory / "a" / "b", host::image_format::raw, keep};
  }
  std::string names() const {
    std::vector<std::string> sorted;
    for (const auto& entry : fs::directory_iterator(directory / "a" / "b")) {
      sorted.push_back(entry.path().filename());
    }
    std::sort(sorted.begin(), sorted.end());
    return fmt::format("{}", fmt::join(sorted, " "));
  }
  std::string index() const { return content(directory / "a/b/frames.jsonl"); }
};

TEST_F(recorded_images, are_whole_or_not_there) {
  const auto frame = frame_of(64, 64);
  auto recording = files();
  recording.write(frame, {});
  const std::uint64_t bytes = recording.write(frame, {});
  const std::string before = index();
  EXPECT_EQ(bytes, 4096 + before.size() / 2);
  const auto last = nlohmann::json::parse(before.substr(before.rfind("{\"index\":1,")));
  EXPECT_EQ(last["file"], "000000001.raw");
  EXPECT_EQ(last["bytes"], 4096);
  EXPECT_EQ(last["exposure_us"], 5000.5);
  EXPECT_EQ(last["timestamp_us"], 7);

  // The file system takes only part of the image, then only part of the line.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  rlimit small = old;
  for (const std::size_t limit : {std::size_t{2000}, before.size() + 20}) {
    small.rlim_cur = limit;
    setrlimit(RLIMIT_FSIZE, &small);
    const auto tiny = frame_of(4, 4);
    EXPECT_THROW(recording.write(limit == 2000 ? frame : tiny, {}), host::output_error);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(index(), before);
    EXPECT_EQ(names(), ".lock 000000000.raw 000000001.raw frames.jsonl");
  }
  recording.write(frame, {});
  EXPECT_TRUE(fs::exists(directory / "a/b/000000002.raw"))
      << "a failure must not leave a hole in the numbers";
}

// A disk that was unplugged: its folder is gone, and then there is another one of the same name.
TEST_F(recorded_images, go_on_in_a_folder_that_came_back) {
  const auto frame = frame_of(4, 4);
  auto recording = files();
  recording.write(frame, {});
  fs::remove_all(directory / "a");
  for (int times = 0; times < 2; ++times) {
    EXPECT_THROW(recording.write(frame, {}), host::output_error);
    EXPECT_FALSE(fs::exists(directory / "a")) << "it would be on the disk below";
  }
  fs::create_directories(directory / "a" / "b");
  recording.write(frame, {});
  EXPECT_EQ(names(), ".lock 000000000.raw frames.jsonl");
}

TEST_F(recorded_images, are_continued_after_a_power_cut) {
  const auto frame = frame_of(4, 4);
  files().write(frame, {});
  const std::string whole = index();
  const fs::path folder = directory / "a" / "b";
  for (const std::string& rest : {std::string(R"({"index":1,"fi)"), std::string(40, '\0'),
                                  std::string("{\"index\":7,\"file\":\"000000007.raw\"}\n{\"ind")}) {
    std::ofstream(folder / "frames.jsonl", std::ios::app) << rest;
    std::ofstream(folder / ".000000001.raw.part") << "half";
    files();
    EXPECT_EQ(index(), whole);
    EXPECT_EQ(names(), ".lock 000000000.raw frames.jsonl");
  }
  std::ofstream(folder / "000000001.raw") << "its line did not reach the disk";
  std::ofstream(folder / "000000003.png") << "somebody put it there";
  auto recording = files();
  std::ofstream(folder / "000000004.raw") << "and this one, meanwhile";
  recording.write(frame, {});
  EXPECT_EQ(names(),
            ".lock 000000000.raw 000000001.raw 000000003.png 000000004.raw 000000005.raw frames.jsonl");
  EXPECT_EQ(content(folder / "000000004.raw"), "and this one, meanwhile");
}

TEST_F(recorded_images, go_oldest_first_beyond_the_limits) {
  const auto frame = frame_of(64, 64);
  const auto record = [&](host::image_files recording, int images) {
    for (; images > 0; --images) {
      auto now = frame;
      now.arrivalUs = Time__GetTimeUsec();
      recording.write(now, {});
    }
    recording.settle();
  };
  record(files(), 3);
  record(files({.bytes = 3 * 4096}), 2);
  EXPECT_EQ(names(), ".lock 000000002.raw 000000003.raw 000000004.raw frames.jsonl");
  record(files({.bytes = 3 * 4096}), 200);
  EXPECT_EQ(names(), ".lock 000000202.raw 000000203.raw 000000204.raw frames.jsonl");
  EXPECT_LT(index().size(), 100U * 200) << "lines of images that went must go, too";
  record(files({.age = std::chrono::microseconds(1)}), 1);
  EXPECT_EQ(names(), ".lock frames.jsonl");
  EXPECT_THROW(record(files({.freeBytes = std::uint64_t{1} << 62U}), 1), host::output_error);
}

TEST_F(recorded_images, are_of_one_process_and_of_no_other_place) {
  const auto recording = files();
  EXPECT_THROW(files(), host::output_error) << "two processes would take the same numbers";
  fs::create_directory_symlink(directory / "elsewhere", directory / "link");
  fs::create_directories(directory / "foreign");
  std::ofstream(directory / "foreign/frames.jsonl") << "my notes\n";
  for (const fs::path& path : {directory / "link", directory / "foreign", fs::path("/proc/nowhere")}) {
    EXPECT_THROW(host::image_files(path, host::image_format::raw, {}), host::output_error) << path;
  }
  EXPECT_EQ(content(directory / "foreign/frames.jsonl"), "my notes\n");
  for (const auto& [serial, name] : std::map<std::string, std::string>{{"S1_a-2.b", "S1_a-2.b"},
                                                                       {"../../x", "%2E.%2F..%2Fx"},
                                                                       {"%2E", "%252E"},
                                                                       {"a\n\xC3\xA4", "a%0A%C3%A4"}}) {
    EXPECT_EQ(host::file_name_of(serial), name);
  }
}

}  // namespace
