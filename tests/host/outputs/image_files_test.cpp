// Frames as image files.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>

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

TEST_F(host_files, images_appear_whole_or_not_at_all) {
  const auto names = [&](const fs::path& where) {
    std::string list;
    std::vector<std::string> sorted;
    for (const auto& entry : fs::directory_iterator(where)) {
      sorted.push_back(entry.path().filename());
    }
    std::sort(sorted.begin(), sorted.end());
    return fmt::format("{}", fmt::join(sorted, " "));
  };
  const auto frame = frame_of(64, 64);
  {
    host::image_files files(directory / "a" / "b", host::image_format::raw);
    files.write(frame, {});
    files.write(frame, {});
  }
  host::image_files files(directory / "a" / "b", host::image_format::pgm);
  const std::size_t linesBefore = content(directory / "a/b/frames.jsonl").size();
  const std::uint64_t bytes = files.write(frame, {});
  const std::string before = content(directory / "a/b/frames.jsonl");
  EXPECT_EQ(bytes, 4096 + 13 + before.size() - linesBefore);
  const auto last = nlohmann::json::parse(before.substr(before.rfind("{\"index\":2,")));
  EXPECT_EQ(last["file"], "000000002.pgm");
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
    EXPECT_THROW(files.write(limit == 2000 ? frame : tiny, {}), host::output_error);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(content(directory / "a/b/frames.jsonl"), before);
    EXPECT_EQ(names(directory / "a/b"), "000000000.raw 000000001.raw 000000002.pgm frames.jsonl");
  }
  files.write(frame, {});
  EXPECT_TRUE(fs::exists(directory / "a/b/000000003.pgm"))
      << "a failure must not leave a hole in the numbers";
  EXPECT_THROW(host::image_files("/proc/nowhere", host::image_format::raw), host::output_error);
}

}  // namespace
