// The parts of the host.
#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "host/cameras.h"
#include "host/config.h"
#include "host/image_files.h"
#include "host/intervals.h"
#include "host/options.h"
#include "host/status.h"
#include "host/sweeps.h"
#include "host/y4m.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

const std::string kCamera = R"([[camera]]
serial = "SIM00001"
frame_rate_hz = 50
width = 320
height = 240
exposure_us = 5000
gain_db = 0
)";

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::string content(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// A directory of its own for each test, and away with it.
class host_files : public testing::Test {
 protected:
  host_files() {
    std::string name = fs::temp_directory_path() / "host_test.XXXXXX";
    directory = mkdtemp(name.data());
  }
  ~host_files() override { fs::remove_all(directory); }

  fs::path directory;
};

// ---- Configuration

TEST(config, reports_each_mistake_with_line_key_found_and_right) {
  struct {
    std::string text;
    std::vector<std::string> messages;
  } const cases[] = {
      {"", {"c:1: camera: found nothing, must be at least one [[camera]]"}},
      {"camera = 3", {"c:1: camera: found 3, must be an array of tables, written [[camera]]"}},
      {"[[camera]\n", {"c:1: line is no valid TOML: "}},
      {kCamera + "gian_db = 1",
       {"c:8: camera[1].gian_db: found an unknown key, must be a known one; did you mean 'gain_db'?"}},
      {kCamera + "zzzzzzzzz = 1",
       {"c:8: camera[1].zzzzzzzzz: found an unknown key, must be one of serial, "}},
      {kCamera + "gamma = nan", {"c:8: camera[1].gamma: found nan, must be a number from 0.01 to 10"}},
      {kCamera + "ir_level = 1.5",
       {"c:8: camera[1].ir_level: found 1.5, must be a whole number from 0 to 65535"}},
      {kCamera + "pixel_format = \"Mono10\"",
       {"c:8: camera[1].pixel_format: found 'Mono10', must be \"Mono8\""}},
      {kCamera + kCamera,
       {"c:9: camera[2].serial: found 'SIM00001', must be a serial that no other [[camera]] has"}},
      {kCamera + "[[camera.pin]]\nline = \"Line3\"\n[[camera.pin]]\nline = \"Line3\"",
       {"c:11: camera[1].pin[2].line: found 'Line3', must be a line that no other pin has"}},
      {kCamera + "[[camera.pin]]\nline = \"Line3\"\nsource = \"exposure_ratio\"",
       {"c:8: camera[1].pin[1].exposure_ratio: found nothing, must be there when source is"}},
      {kCamera + "[[sweep]]\nexposure_us = 1", {"c:8: sweep[1]: found no wait, must be one of"}},
      {kCamera + "[[sweep]]\nafter_frames = 1\nafter_seconds = 1",
       {"c:8: sweep[1]: found both waits", "c:8: sweep[1]: found no setting, must be at least one of"}},
      {kCamera + "[[sweep]]\nafter_frames = 1\ngamma = 1\ncamera = \"X\"",
       {"c:11: sweep[1].camera: found 'X', must be the serial of a configured camera: SIM00001"}},
      // Ten mistakes, ten messages.
      {"colour = 1\n[[camera]]\nserial = \"\"\nframe_rate_hz = 0\nwidth = \"wide\"\nheight = 0\nexposure_us "
       "= -1\n"
       "gain_db = 61\npacket_size_max = 9181\nrotate180 = 1\n[[sweep]]\nafter_frames = 0\ngamma = 2\n",
       {"c:1: colour: ", "c:3: camera[1].serial: ", "c:4: camera[1].frame_rate_hz: ",
        "c:5: camera[1].width: found 'wide', must be a whole number from 1 to 65535 px",
        "c:6: camera[1].height: ", "c:7: camera[1].exposure_us: ", "c:8: camera[1].gain_db: ",
        "c:9: camera[1].packet_size_max: ", "c:10: camera[1].rotate180: ", "c:12: sweep[1].after_frames: "}},
  };
  for (const auto& each : cases) {
    const auto errors = host::parse_config(each.text, "c").errors;
    ASSERT_EQ(errors.size(), each.messages.size()) << each.text << fmt::format("{}", fmt::join(errors, "\n"));
    for (std::size_t at = 0; at < errors.size(); ++at) {
      EXPECT_TRUE(errors[at].starts_with(each.messages[at]))
          << errors[at] << "\nexpected " << each.messages[at];
    }
  }
}

TEST(config, becomes_the_rows_of_the_property_table) {
  const auto parsed = host::parse_config(kCamera + R"(rotate180 = true
[[camera.pin]]
line = "Line4"
source = "exposure_ratio"
exposure_ratio = 50
polarity = "inverted"
[[camera.pin]]
line = "Line3"
)",
                                         "c");
  ASSERT_TRUE(parsed.errors.empty()) << parsed.errors[0];
  const host::table_holder holder = host::make_table(parsed.value.cameras.at(0));
  const Zavik::Support::table<host::property, Zavik::Support::rw_table_like> table(holder.get());
  using enum host::property;
  const auto whole = [&](host::property row, std::uint8_t col) {
    std::int64_t value = -1;
    table.getInt64(row, col, value);
    return value;
  };
  const auto number = [&](host::property row) {
    float value = -1;
    table.getFloat(row, 0, value);
    return value;
  };
  EXPECT_EQ((std::array{whole(PIN_COUNT, 0), whole(PINx_REF, 0), whole(PINx_REF, 1), whole(PINx_SOURCE, 0),
                        whole(PINx_SOURCE, 1), whole(PINx_INVERTER, 0), whole(PINx_INVERTER, 1),
                        whole(PINx_EXPOSURE_RATIO, 0), whole(PINx_EXPOSURE_RATIO, 1)}),
            (std::array<std::int64_t, 9>{2, 6, 5, 3, 2, 2, 1, 50, -1}));
  EXPECT_EQ((std::array{whole(VS_ACQ_FRAME_FORMAT, 0), whole(VS_ACQ_SENSOR_X, 0), whole(VS_ACQ_SENSOR_W, 0),
                        whole(VS_ACQ_SENSOR_H, 0), whole(VS_SWEEP_MANUAL_IR_LEVEL, 0),
                        whole(MISC_STREAM_PACKET_SIZE_BYTES_MAX, 0)}),
            (std::array<std::int64_t, 6>{1, 0, 320, 240, 0, -1}));
  EXPECT_EQ(number(VS_ACQ_FPS_HZ), 50.0F);
  EXPECT_EQ(number(VS_SWEEP_MANUAL_EXPOSURE_USEC), 5000.0F);
  EXPECT_EQ(number(VS_SWEEP_MANUAL_GAMMA), -1.0F) << "left out must stay absent";
  bool rotated = false;
  EXPECT_TRUE(table.getBool(VS_ACQ_ROTATE180, 0, rotated) && rotated);
  std::string serial;
  EXPECT_TRUE(table.getString(DEV_SERIAL, 0, serial) && serial == "SIM00001");
}

TEST(config, template_is_valid_and_names_every_key) {
  std::string text = host::config_template();
  EXPECT_TRUE(host::parse_config(text, "c").errors.empty());
  for (const auto* keys : {&host::camera_keys(), &host::pin_keys(), &host::sweep_keys()}) {
    for (const auto& key : *keys) {
      EXPECT_TRUE(has(text, std::string(key.name) + " = " + key.example)) << key.name;
    }
  }
}

// ---- Options

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
      {{"run", "c", "-n", "1"}, -1},
      {{"run", "c", "-n", "0"}, 2},
      {{"run", "c", "-n", "1.5"}, 2},
      {{"run", "c", "-n", "-1"}, 2},
      {{"run", "c", "-t", "0.001"}, -1},
      {{"run", "c", "-t", "0"}, 2},
      {{"run", "c", "-t", "nan"}, 2},
      {{"run", "c", "-t", "1s"}, 2},
      {{"run", "c", "-e", "0"}, 2},
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

// ---- Intervals

TEST(intervals, count_missed_frames_but_not_late_ones) {
  struct {
    std::vector<std::uint64_t> intervals;  // of a period of 100
    std::uint64_t missed;
  } const cases[] = {
      {{100, 100, 100}, 0},
      {{149, 51, 100}, 0},
      {{200, 100}, 1},
      {{500, 100}, 4},
      {{300, 10, 90, 100}, 1},
      {{300, 5, 5, 90, 100}, 0},
      {{300, 5, 5, 5}, 0},
      {{140, 140, 140}, 0},
      {{300, 10, 300, 100}, 3},
      {{5, 5, 5, 100, 250, 100}, 2},
      {{160, 55, 85, 100}, 0},
      {{160, 95, 100}, 1},
      {{430, 10, 10, 110, 10, 30}, 0},
      {std::vector<std::uint64_t>(100, 200), 100},
  };
  for (const auto& each : cases) {
    host::interval_tracker tracker(100);
    std::uint64_t now = 1000;
    EXPECT_FALSE(tracker.arrived(now));
    for (const std::uint64_t interval : each.intervals) {
      EXPECT_EQ(tracker.arrived(now += interval), interval);
    }
    EXPECT_GE(tracker.missed() + 40, each.missed) << "a slow camera shows while it runs";
    tracker.interrupt();
    EXPECT_EQ(tracker.missed(), each.missed) << fmt::format("{}", fmt::join(each.intervals, " "));
    EXPECT_FALSE(tracker.arrived(now + 100'000)) << "the pause between two runs is no interval";
    EXPECT_EQ(tracker.missed(), each.missed);
  }
}

TEST(intervals, quantiles_are_within_one_percent) {
  host::interval_histogram histogram;
  EXPECT_EQ(histogram.quantile_us(0.5), 0U);
  for (std::uint64_t us = 1; us <= 1000; ++us) {
    histogram.add(us * 100);
  }
  for (const double part : {0.01, 0.5, 0.95, 0.99}) {
    EXPECT_NEAR(static_cast<double>(histogram.quantile_us(part)), part * 100'000, part * 1'001);
  }
  EXPECT_EQ(histogram.quantile_us(1), 100'000U);
  histogram.add(3'600'000'000);
  EXPECT_EQ(histogram.quantile_us(1), 3'600'000'000U);
  EXPECT_EQ(histogram.max_us(), 3'600'000'000U);
}

// ---- Sweeps

TEST(sweeps, come_in_order_and_loop) {
  const auto parsed = host::parse_config(kCamera + R"(gamma = 2.0
ir_level = 1
[[sweep]]
after_seconds = 1
exposure_us = 100
[[sweep]]
after_frames = 3
gain_db = 6
loop = true
[[sweep]]
camera = "SIM00001"
after_frames = 2
ir_level = 0
loop = true
)",
                                         "c");
  ASSERT_TRUE(parsed.errors.empty()) << parsed.errors[0];
  host::sweep_schedule schedule(parsed.value.cameras[0], parsed.value.sweeps_of("SIM00001"));
  for (int run = 0; run < 2; ++run) {
    std::string seen;
    std::vector<host::light_settings> settings;
    schedule.start(5'000'000);
    for (std::uint64_t frame = 1; frame <= 25; ++frame) {
      const std::uint64_t nowUs = 5'000'000 + (frame - 1) * 200'000;
      if (const auto step = schedule.due(nowUs, frame)) {
        seen += fmt::format("{}@{} ", step->index, frame);
        settings.push_back(step->settings);
      }
    }
    // The gamma that the start of a run takes away comes first; one second is five frames.
    EXPECT_EQ(seen, "0@1 1@6 2@9 3@11 2@14 3@16 2@19 3@21 2@24 ");
    EXPECT_EQ(settings[0], (host::light_settings{.exposureUs = 5000.0F, .gamma = 2.0F, .irLevel = 1}));
    EXPECT_EQ(settings[1], (host::light_settings{.exposureUs = 100.0F, .irLevel = 1}));
    EXPECT_EQ(settings[2], (host::light_settings{.gainDb = 6.0F, .exposureUs = 100.0F, .irLevel = 1}));
    EXPECT_EQ(settings[3], (host::light_settings{.exposureUs = 100.0F, .irLevel = 0}));
  }
  EXPECT_EQ(schedule.names()[2], "sweep 2: gain 6 dB");
}

TEST(monitor, says_when_frames_showed_a_sweep_and_the_gap_it_made) {
  host::camera_monitor monitor(100'000);
  monitor.run_started({"a"}, 100'000);
  monitor.arrived(1'000'000, -321.0F);
  monitor.sweep_applied({0, {.gainDb = 6.0F, .exposureUs = 1000.0F}});
  std::uint64_t now = 1'000'000;
  for (const auto& [exposure, gain] :
       {std::pair{5000.0F, 0.0F}, {1005.0F, 0.0F}, {1005.0F, 6.05F}, {1005.0F, 6.0F}}) {
    monitor.arrived(now += 350'000, 40.0F);
    monitor.handed_over(
        {.timestampUs = now, .exposureUs = exposure, .gainDb = gain, .width = 1, .height = 1, .format = 1});
  }
  const auto outcome = monitor.sweeps().at(0);
  EXPECT_EQ(outcome.applied, 1U);
  EXPECT_EQ(outcome.shown, 1U);
  EXPECT_EQ(outcome.framesMost, 3U);
  EXPECT_EQ(outcome.longestGapUs, 350'000U);
  EXPECT_EQ(monitor.totals().temperatureC, 40.0F);
}

// ---- Recording

host::cam_frame_info info_of(std::uint16_t width, std::uint16_t height) {
  return {
      .timestampUs = 7, .exposureUs = 5000.5F, .gainDb = 6, .width = width, .height = height, .format = 1};
}

host::stored_frame frame_of(std::uint16_t width, std::uint16_t height) {
  host::stored_frame frame{.info = info_of(width, height), .number = 9, .arrivalUs = 8, .pixels = {}};
  for (int at = 0; at < width * height; ++at) {
    frame.pixels.push_back(static_cast<std::uint8_t>(at * 37));
  }
  return frame;
}

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

// A sink that the test opens and closes, and that can fail.
class gated_sink final : public host::frame_sink {
 public:
  std::uint64_t write(const host::stored_frame& frame, const std::stop_token& stop) override {
    std::unique_lock lock(mutex);
    changed.wait(lock, stop, [this] { return isOpen; });
    if (stop.stop_requested() || fails) {
      throw host::output_error("the disk is full");
    }
    numbers.push_back(frame.number);
    return frame.pixels.size();
  }
  void set(bool open, bool failing) {
    const std::lock_guard lock(mutex);
    isOpen = open;
    fails = failing;
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable_any changed;
  bool isOpen = false;
  bool fails = false;
  std::vector<std::uint64_t> numbers;
};

TEST(recording, a_slow_disk_loses_frames_of_the_recording_only) {
  auto owned = std::make_unique<gated_sink>();
  gated_sink& sink = *owned;
  host::frame_writer writer("C", std::move(owned), 16U << 20U, 2);
  ASSERT_EQ(writer.pool_size(), 8U);
  const auto frame = frame_of(8, 8);
  const auto offer = [&](std::uint64_t first, std::uint64_t last) {
    for (; first <= last; ++first) {
      writer.offer(frame.info, first, frame.pixels);
    }
  };
  const auto settle = [&] {
    while (!writer.is_idle()) {
      std::this_thread::sleep_for(1ms);
    }
  };
  offer(1, 20);  // ten of them taken, eight fit
  EXPECT_EQ(writer.totals().dropped, 2U);
  sink.set(true, false);
  settle();
  EXPECT_EQ(sink.numbers, (std::vector<std::uint64_t>{1, 3, 5, 7, 9, 11, 13, 15}));
  sink.set(true, true);
  offer(21, 24);
  settle();
  sink.set(true, false);
  offer(25, 25);
  settle();
  EXPECT_EQ(writer.totals().written, 9U);
  EXPECT_EQ(writer.totals().dropped, 4U);
  EXPECT_EQ(writer.totals().bytes, 9U * 64);
  sink.set(false, false);
  offer(27, 31);
  writer.stop();
  EXPECT_EQ(writer.totals().dropped, 7U) << "what waits at the end is counted";
}

TEST_F(host_files, y4m_is_a_stream_of_one_size) {
  const fs::path path = directory / "v.y4m";
  const auto frame = frame_of(6, 2);
  const std::string pixels(frame.pixels.begin(), frame.pixels.end());
  {
    host::y4m_stream stream(path, 29.97);
    stream.write(frame, {});
    stream.write(frame, {});
    EXPECT_THROW(stream.write(frame_of(2, 6), {}), host::output_error);
  }
  EXPECT_EQ(content(path), "YUV4MPEG2 W6 H2 F29970:1000 Ip A1:1 Cmono XCOLORRANGE=FULL\nFRAME\n" + pixels +
                               "FRAME\n" + pixels);
  host::y4m_stream full("/dev/full", 1);
  try {
    full.write(frame, {});
    ADD_FAILURE() << "a full disk was not noticed";
  } catch (const host::output_error& error) {
    EXPECT_TRUE(has(error.what(), "the disk is full")) << error.what();
  }
  // A pipe without a reader, with one that reads nothing, and with one that went away.
  const fs::path pipe = directory / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  host::y4m_stream stream(pipe, 1);
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

// ---- What people and machines read

GEV_DEVICE_INTERFACE camera_at(const char* serial, std::uint32_t address) {
  GEV_DEVICE_INTERFACE camera{};
  std::snprintf(camera.serial, sizeof camera.serial, "%s", serial);
  camera.ipAddr = address;
  return camera;
}

TEST(cameras, tell_why_one_is_missing) {
  const std::vector<host::network_interface> net = {{"lo", 0x7F000001, 0xFF000000, true, true},
                                                    {"eth0", 0xC0A80001, 0xFFFFFF00, true, false}};
  const std::vector<host::network_interface> loopback = {net[0]};
  const std::vector<GEV_DEVICE_INTERFACE> one = {camera_at("S123", 0xC0A80002)};
  const std::vector<GEV_DEVICE_INTERFACE> nine(9, camera_at("T1", 0xC0A80003));
  auto ninth = nine;
  ninth[8] = one[0];
  struct {
    std::string serial;
    std::vector<GEV_DEVICE_INTERFACE> found;
    std::vector<host::network_interface> interfaces;
    std::string reason;  // part of it; empty: none
  } const cases[] = {
      {"S123", one, net, ""},
      {"", one, net, ""},
      {"s123 ", one, net, "did you mean 'S123'"},
      {"XYZXYZ", one, net, "others did: S123"},
      {"S123", one, loopback, "192.168.0.2, which is in the subnet of none"},
      {"S123", {}, net, "interface eth0: 192.168.0.1, mask 255.255.255.0, up"},
      {"S123", {}, loopback, "no interface but loopback is up"},
      {"S123", ninth, net, "as number 9; the driver looks at the first 8"},
  };
  for (const auto& each : cases) {
    const std::string reasons =
        fmt::format("{}", fmt::join(host::why_missing(each.serial, each.found, each.interfaces), "\n"));
    EXPECT_EQ(reasons.empty(), each.reason.empty()) << reasons;
    EXPECT_TRUE(has(reasons, each.reason)) << reasons;
  }
}

TEST(status, figures_become_lines) {
  host::camera_slot slot("A\"B", 33'333);
  slot.monitor.run_started({}, 33'333);
  slot.monitor.arrived(host::steady_us() - 2'000'000, 41.23F);
  slot.monitor.handed_over(info_of(4, 4));
  const host::camera_figures figures = host::figures_of(slot);
  const std::string line = host::status_line(figures, {30.04, 1.5e6});
  EXPECT_TRUE(has(line, "#1 30.0/s missed 0 gap 200") && has(line, "5000us 6.0dB 41.2C")) << line;
  const std::string metrics = host::metrics_text({figures});
  EXPECT_TRUE(has(metrics, "\nmediagrabber_exposure_seconds{camera=\"A\\\"B\"} 0.0050005")) << metrics;
  EXPECT_TRUE(has(metrics, "\n# TYPE mediagrabber_frames_total counter\n")) << metrics;
  for (const char* bundle : {"", "no json", R"({"stat": {"temp": 1}})"}) {
    const auto json = nlohmann::json::parse(host::stats_line(figures, {}, bundle));
    EXPECT_EQ(json["camera"], "A\"B");
    EXPECT_EQ(json["bundle"].type_name(), std::string(*bundle == '\0'  ? "null"
                                                      : *bundle == 'n' ? "string"
                                                                       : "object"));
  }
}

}  // namespace
