// The built program, end to end, with simulated cameras.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "tests/host/parts.h"
#include "tests/program.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tests::clock_type;
using tests::content;
using tests::count;
using tests::expect_parts;
using tests::has;
using tests::words;

std::string camera_text(const std::string& serial, const std::string& more = "") {
  return fmt::format(
      "[[camera]]\nserial = \"{}\"\nframe_rate_hz = 50\nwidth = 160\nheight = 120\nexposure_us = 5000\n"
      "gain_db = 0\n{}\n",
      serial, more);
}

class program : public tests::program {
 public:
  program(const fs::path& directory, const words& arguments, const std::string& cameras, int terminal = -1)
      : tests::program(directory / "host", line(arguments, cameras), terminal) {}

 private:
  static words line(const words& arguments, const std::string& cameras) {
    words all = {"env", "SIM_CAMERAS=" + cameras, MEDIAGRABBER};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }
};

class mediagrabber : public testing::Test {
 protected:
  mediagrabber() {
    std::string name = fs::temp_directory_path() / "mediagrabber_test.XXXXXX";
    directory = mkdtemp(name.data());
  }
  ~mediagrabber() override { fs::remove_all(directory); }

  std::string configure(const std::string& text) const {
    std::ofstream(directory / "c.toml") << text;
    return directory / "c.toml";
  }
  program start(std::vector<std::string> arguments, const std::string& cameras = "sensor=320x240") const {
    arguments.insert(arguments.end(), {"-F", "sim"});
    return {directory, arguments, cameras};
  }
  std::size_t images(const std::string& serial, const std::string& extension) const {
    std::size_t found = 0;
    for (const auto& entry : fs::directory_iterator(directory / "rec" / serial)) {
      found += entry.path().extension() == extension ? 1U : 0U;
    }
    return found;
  }

  fs::path directory;
};

constexpr double kEndLongest = 10;  // seconds; ten times what is promised, whatever else the machine does
constexpr const char* kTwo = "serial=A sensor=320x240\nserial=B sensor=320x240";

TEST_F(mediagrabber, records_every_frame_of_every_camera) {
  for (const auto& [every, expected] : {std::pair{"1", 30U}, {"7", 5U}, {"30", 1U}}) {
    auto run = start({"run", configure(camera_text("A") + camera_text("B")), "-n", "30", "-r",
                      directory / "rec", "-f", "pgm", "-e", every, "-s", directory / "stats"},
                     kTwo);
    EXPECT_EQ(run.wait(), 0) << run.error();
    for (const char* serial : {"A", "B"}) {
      EXPECT_EQ(images(serial, ".pgm"), expected);
      EXPECT_EQ(count(content(directory / "rec" / serial / "frames.jsonl"), "\n"), expected);
      EXPECT_EQ(fs::file_size(directory / "rec" / serial / "000000000.pgm"), 160U * 120 + 15);
      EXPECT_TRUE(has(run.error(), fmt::format("{}: 31 frames", serial))) << run.error();
    }
    EXPECT_EQ(count(run.error(), fmt::format("files: {} frames written, 0 dropped", expected)), 2U)
        << run.error();
    fs::remove_all(directory / "rec");
  }
  std::istringstream lines(content(directory / "stats"));
  for (std::string line; std::getline(lines, line);) {
    const auto json = nlohmann::json::parse(line);
    EXPECT_TRUE(json["bundle"].is_null() || json["bundle"]["stat"].contains("temp")) << line;
  }
}

TEST_F(mediagrabber, ends_within_a_second_of_a_signal) {
  const std::string path = configure(camera_text("SIM00001"));
  struct {
    const char* camera;
    bool givesFrames;
  } const cases[] = {{"sensor=320x240", true},
                     {"sensor=320x240 fault=frame:_silent_@20", true},
                     {"sensor=320x240 fault=GevOpenCamera:_status_-6", false}};
  for (const auto& [camera, givesFrames] : cases) {
    for (const int number : {SIGINT, SIGTERM}) {
      auto run = start({"run", path, "-y", directory / "v.y4m", "--overwrite"}, camera);
      ASSERT_TRUE(run.says(givesFrames ? "acquisition starts" : "created again in 1 s")) << run.error();
      const std::size_t bytes = givesFrames ? 20'000 : 0;
      ASSERT_TRUE(program::until([&] { return content(directory / "v.y4m").size() >= bytes; }));
      std::this_thread::sleep_for(300ms);
      EXPECT_LT(run.end(number, givesFrames ? 0 : 1), kEndLongest) << camera;
      EXPECT_EQ(count(run.error(), "silent wait"), 1U) << "no summary: " << run.error();
      EXPECT_EQ(has(run.error(), " error "), !givesFrames) << run.error();
    }
  }
  // A camera that hangs in a call is cancelled.
  for (const char* point : {"GevOpenCamera", "GevStartTransfer", "read_Gain", "write_ExposureTime"}) {
    auto run = start({"run", path}, fmt::format("sensor=320x240 fault={}:_slow_60000000", point));
    ASSERT_TRUE(run.says("SIM00001 ")) << "it does not run";
    std::this_thread::sleep_for(300ms);
    EXPECT_LT(run.end(SIGTERM, 1), kEndLongest) << point << run.error();
    EXPECT_TRUE(has(run.error(), "does not end by itself and is cancelled")) << run.error();
  }
  auto run = start({"run", path, "-t", "0.5"});
  const auto began = clock_type::now();
  EXPECT_EQ(run.wait(), 0);
  EXPECT_LT(clock_type::now() - began, 3s);
}

TEST_F(mediagrabber, creates_a_failed_device_again) {
  const std::string path = configure(camera_text("SIM00001"));
  // The tenth frame's gain can't be read, once.
  auto flaky = start({"run", path, "-n", "30", "-r", directory / "rec"},
                     "sensor=320x240 fault=read_Gain:_timeout_@10_x1");
  EXPECT_EQ(flaky.wait(), 0) << flaky.error();
  EXPECT_EQ(images("SIM00001", ".png"), 30U);
  EXPECT_TRUE(has(flaky.error(), "the device failed (1 in a row): run2: fail: exception <")) << flaky.error();
  EXPECT_TRUE(has(flaky.error(), "0 silent waits, 1 device failure")) << flaky.error();

  auto absent = start({"run", path, "--max-failures", "2"}, "serial=OTHER");
  EXPECT_EQ(absent.wait(), 1);
  EXPECT_EQ(count(absent.error(), "the device failed"), 2U);
  EXPECT_TRUE(has(absent.error(), "[SIM00001] src/camera/gev_camera.cpp")) << absent.error();
  auto once = start({"run", path, "--no-restart"}, "serial=OTHER");
  EXPECT_EQ(once.wait(), 1);
  EXPECT_EQ(count(once.error(), "the device failed"), 1U);
}

TEST_F(mediagrabber, reads_its_configuration_again_on_sighup) {
  const std::string path = configure(camera_text("A"));
  ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);  // that nobody reads
  auto run = start({"run", path, "-r", directory / "rec", "-f", "raw", "-s", directory / "pipe"}, kTwo);
  const auto isRecorded = [&](const char* serial, const char* what) {
    return program::until([&] { return has(content(directory / "rec" / serial / "frames.jsonl"), what); });
  };
  ASSERT_TRUE(isRecorded("A", R"("width":160)")) << run.error();
  configure(camera_text("A", "ir_level = \"bright\""));
  run.signal(SIGHUP);
  ASSERT_TRUE(run.says("c.toml:8: camera[1].ir_level: found 'bright'")) << run.error();
  ASSERT_TRUE(run.says("stays in place"));
  EXPECT_EQ(count(run.error(), "acquisition starts"), 1U);

  const std::string other = camera_text("A") + camera_text("B");
  configure(std::string(other).replace(other.find("160"), 3, "192"));
  run.signal(SIGHUP);
  EXPECT_TRUE(isRecorded("A", R"("width":192)")) << run.error();
  EXPECT_TRUE(isRecorded("B", R"("width":160)")) << run.error();

  std::ofstream(directory / "rec/C") << "no folder";
  configure(other + camera_text("C"));
  run.signal(SIGHUP);
  ASSERT_TRUE(run.says("rec/C is no folder of its own")) << run.error();
  EXPECT_EQ(count(run.error(), "acquisition starts"), 3U) << "nothing may end for what can't begin";
  configure(camera_text("B"));
  run.signal(SIGHUP);
  ASSERT_TRUE(run.says("acquisition starts", 4)) << run.error();
  EXPECT_EQ(count(run.error(), "\nA: "), 1U) << "no summary of what is not configured any more";
  EXPECT_LT(run.end(SIGTERM, std::nullopt), kEndLongest);
  EXPECT_EQ(count(run.error(), "\nA: "), 1U);
  EXPECT_FALSE(has(run.error(), "device failed")) << run.error();
}

TEST_F(mediagrabber, prepares_a_camera_that_kept_its_look_up_table_off) {
  const std::string path = configure(camera_text("SIM00001"));
  // The run's start leaves the table off; the run then fails, is created again, and again on SIGHUP.
  auto run = start({"run", path}, "sensor=320x240 on-close=keep fault=read_Gain:_timeout_@10_x1");
  ASSERT_TRUE(run.says("acquisition starts", 2)) << run.error();
  run.signal(SIGHUP);
  ASSERT_TRUE(run.says("acquisition starts", 3)) << run.error();
  EXPECT_LT(run.end(SIGTERM), kEndLongest);
  EXPECT_EQ(count(run.error(), "prepared: lutMode from Off to Active"), 2U) << run.error();
  EXPECT_TRUE(has(run.error(), "1 device failure")) << run.error();
}

TEST_F(mediagrabber, gives_up_a_camera_that_can_not_take_its_configuration) {
  const std::string path = configure(camera_text("A") + camera_text("B"));
  const char* const cameras =
      "serial=A sensor=320x240 missing=ReverseX entryless=GainSelector.SensorAll; serial=B sensor=320x240";
  auto run = start({"run", path, "-n", "20"}, cameras);
  EXPECT_EQ(run.wait(), 1);
  expect_parts(run.error(), {"ReverseX: the camera does not have it",
                             "GainSelector: it has no entry SensorAll, but DigitalAll",
                             "the camera is given up", "B: 21 frames"});
  auto check = start({"check", path, "-c", "A"}, cameras);
  EXPECT_EQ(check.wait(), 1);
  EXPECT_TRUE(has(check.out(), "-> ReverseX: the camera does not have it")) << check.out();

  // A service waits for another configuration.
  setenv("NOTIFY_SOCKET", (directory / "nobody").c_str(), 1);
  auto service = start({"run", path, "-c", "A"}, cameras);
  unsetenv("NOTIFY_SOCKET");
  ASSERT_TRUE(service.says("is given up"));
  service.signal(SIGHUP);
  EXPECT_TRUE(service.says("is given up", 2)) << service.error();
  service.signal(SIGTERM);
  EXPECT_EQ(service.wait(), 1);
}

TEST_F(mediagrabber, leaves_a_sweep_out_that_the_camera_refuses) {
  const auto sweep = [](const char* setting) {
    return fmt::format("[[sweep]]\nafter_frames = 3\nloop = true\n{}\n", setting);
  };
  const std::string text =
      camera_text("SIM00001") + sweep("gain_db = 30") + sweep("gain_db = 3") + sweep("exposure_us = 2000");
  // The third gain, after those of the creation, is within the limits and refused all the same.
  auto run = start({"run", configure(text), "-n", "60"}, "sensor=320x240 fault=write_Gain:_access_@3_x1");
  EXPECT_EQ(run.wait(), 0) << run.error();
  EXPECT_EQ(
      count(run.error(), "is refused, and not tried again: gain_db = 30: the camera takes 0 to 24.08 dB"),
      1U);
  expect_parts(run.error(), {"sweep 1: gain 30 dB: refused: gain_db = 30: the camera takes 0 to 24.08 dB",
                             "sweep 2: gain 3 dB: applied once, refused: the camera does not take it",
                             "read back each time within 1 frame", "1 device failure"});
}

TEST_F(mediagrabber, serves_metrics_and_streams_video) {
  const std::string sweep = "[[sweep]]\nafter_frames = 5\nexposure_us = 2500\n";
  auto run = start({"run", configure(camera_text("SIM00001") + sweep), "-n", "100", "-y", "-", "-m", "0"});
  ASSERT_TRUE(run.says("metrics are served at http://127.0.0.1:")) << run.error();
  const std::string error = run.error();
  const int port = std::stoi(error.substr(error.find("http://127.0.0.1:") + 17));
  const std::string url = fmt::format("http://127.0.0.1:{}/metrics", port);
  ASSERT_TRUE(program::until([&] {
    tests::program client(directory / "client", {"curl", "-s", url});
    return client.wait() == 0 &&
           has(client.out(), "mediagrabber_exposure_seconds{camera=\"SIM00001\"} 0.0025");
  }));
  EXPECT_EQ(run.wait(), 0) << run.error();
  const std::string video = run.out();
  const std::string head = "YUV4MPEG2 W160 H120 F50000:1000 Ip A1:1 Cmono XCOLORRANGE=FULL\n";
  EXPECT_TRUE(video.starts_with(head));
  EXPECT_EQ(video.size(), head.size() + std::size_t{100} * (6 + 160 * 120));
  EXPECT_TRUE(
      has(run.error(), "sweep 1: exposure 2500 us: applied once, before frame 5, read back with frame 5"))
      << run.error();
}

TEST_F(mediagrabber, a_full_disk_does_not_stop_acquisition) {
  // Files may have 4 KiB: not enough for an image.
  const std::string line =
      fmt::format("ulimit -f 8; exec {} run {} -F sim -n 20 -r {} -s /dev/full", MEDIAGRABBER,
                  configure(camera_text("SIM00001")), (directory / "rec").string());
  tests::program run(directory / "host", {"sh", "-c", line});
  EXPECT_EQ(run.wait(), 1);
  EXPECT_EQ(count(run.error(), "can't be written: File too large. Frames are not recorded"), 1U)
      << "one message, not one a frame: " << run.error();
  EXPECT_EQ(count(run.error(), "the disk is full"), 1U) << run.error();
  expect_parts(run.error(), {"21 frames", "0 frames written, 20 dropped"});
  EXPECT_EQ(images("SIM00001", ".png"), 0U);
}

TEST_F(mediagrabber, ends_with_the_reader_of_its_video) {
  const std::string line = fmt::format("{} run {} -F sim -y - | head -c 20000 | wc -c", MEDIAGRABBER,
                                       configure(camera_text("SIM00001")));
  tests::program run(directory / "host", {"bash", "-o", "pipefail", "-c", line});
  EXPECT_EQ(run.wait(), 0) << run.error();
  EXPECT_EQ(run.out(), "20000\n");
  EXPECT_TRUE(has(run.error(), "the reader of - went away: this output ends")) << run.error();
}

TEST_F(mediagrabber, keeps_the_camera_of_its_video_on_sighup) {
  auto run = start({"run", configure(camera_text("A")), "-y", directory / "v.y4m"}, kTwo);
  ASSERT_TRUE(run.says("acquisition starts")) << run.error();
  configure(camera_text("B"));
  run.signal(SIGHUP);
  EXPECT_TRUE(run.says("v.y4m is of camera 'A'; start again for another")) << run.error();
  EXPECT_TRUE(program::until([&] { return content(directory / "v.y4m").size() > 20'000; }));
  EXPECT_LT(run.end(SIGTERM), kEndLongest);
}

TEST_F(mediagrabber, is_wrong_or_failed_with_its_own_exit_code) {
  const std::string good = configure(camera_text("SIM00001"));
  std::ofstream(directory / "bad.toml") << "[[camera]]\n";
  std::ofstream(directory / "two.toml") << camera_text("A") << camera_text("B");
  struct {
    std::vector<std::string> arguments;
    int exitCode;
    std::string says;
  } const cases[] = {
      // A wrong configuration is found before any library is looked for.
      {{"run", directory / "bad.toml", "-F", "/nowhere"}, 2, "camera[1].serial: found nothing"},
      {{"run", directory / "none.toml"}, 2, "none.toml: cannot be read: No such file"},
      {{"run", directory}, 2, "cannot be read: Is a directory"},
      {{"run", good, "-c", "X"}, 2, "has no camera 'X', but SIM00001"},
      {{"run", directory / "two.toml", "-y", "v"}, 2, "choose one with --camera"},
      {{"run", good, "-F", "/nowhere"}, 1, "--framework: there is no file /nowhere"},
      {{"run", good, "-F", good}, 1, "can't be loaded"},
      {{"run", good, "-F", "sim", "-B", "/nowhere"}, 1, "--bundle: there is no file /nowhere"},
      {{"run", good, "-F", "sim", "-B", CAMERA_LIBRARY}, 1, "it has no function MgBundleInit"},
      {{"run", good, "-F", "sim", "-r", "/proc/x"}, 1, "/proc/x"},
      {{"run", good, "-F", "sim", "-m", "203.0.113.1:9100"},
       1,
       "nothing can be served at 203.0.113.1 port 9100: Cannot assign"},
      {{"run", good, "-F", "sim", "-s", "/nowhere/s"}, 1, "/nowhere/s can't be opened"},
      {{"run", good, "-F", "sim", "-q", "-n", "2"}, 0, ""},
  };
  for (const auto& each : cases) {
    program run(directory, each.arguments, "sensor=320x240");
    EXPECT_EQ(run.wait(), each.exitCode) << fmt::format("{}", fmt::join(each.arguments, " "));
    expect_parts(run.error(), {each.says});
    EXPECT_EQ(run.error().empty(), each.says.empty()) << run.error();
  }
}

TEST_F(mediagrabber, says_so_when_there_is_no_memory_to_begin) {
  if (*SANITIZERS != '\0') {
    return;  // their own operators can't be replaced
  }
  const std::string path = configure(camera_text("SIM00001", "[[sweep]]\nafter_frames = 5\ngain_db = 3\n"));
  int failures = 0;
  int exitCode = 2;
  for (int at = 0; exitCode == 2; at += 37) {  // some of them, to save time
    tests::program run(directory / "host", {"env", fmt::format("FAIL_NEW_AT={}", at),
                                            "LD_PRELOAD=" FAILING_NEW, MEDIAGRABBER, "validate", path});
    exitCode = run.wait();
    failures += exitCode == 2 ? 1 : 0;
    ASSERT_NE(exitCode, -1) << "allocation " << at << ": " << run.error();
    EXPECT_EQ(has(run.error(), "no memory"), exitCode == 2) << "allocation " << at << ": " << run.error();
  }
  EXPECT_GT(failures, 20);
}

// Every so many-th allocation fails: of the devices, their bundle, the tables, the log.
TEST_F(mediagrabber, goes_on_when_a_camera_runs_out_of_memory) {
  if (*SANITIZERS != '\0') {
    return;  // their own operators can't be replaced
  }
  const std::string path = configure(camera_text("A", "gamma = 2\n") + camera_text("B"));
  for (const int every : {13, 50}) {
    tests::program run(directory / "host",
                       {"env", "SIM_CAMERAS=" + std::string(kTwo), "LD_PRELOAD=" FAILING_NEW,
                        "FAIL_NEW_THREAD=acquisition", fmt::format("FAIL_NEW_EVERY={}", every), MEDIAGRABBER,
                        "run", path, "-F", "sim", "-t", "2", "-r", directory / "rec", "-f", "raw"});
    EXPECT_GE(run.wait(), 0) << "every " << every << ": " << run.error();
    EXPECT_GE(count(run.error(), "bad_alloc") + count(run.error(), "no memory"), 1U) << run.error();
    EXPECT_EQ(count(run.error(), " silent wait"), 2U) << "no summary: " << run.error();
  }
}

TEST_F(mediagrabber, ends_though_nobody_reads_its_log) {
  std::array<int, 2> unread{};
  ASSERT_EQ(pipe2(unread.data(), O_CLOEXEC), 0);
  program run(directory, {"run", configure(camera_text("SIM00001")), "-F", "sim", "-vv", "-t", "1"},
              "sensor=320x240", unread[1]);
  EXPECT_EQ(run.wait(), 0);
  for (const int end : unread) {
    close(end);
  }
}

TEST_F(mediagrabber, lists_cameras_and_says_why_one_is_missing) {
  auto all = start({"cameras"}, kTwo);
  EXPECT_EQ(all.wait(), 0);
  expect_parts(all.out(), {"\nA  ", "\nB  ", "169.254.77.", "02:00:"});
  auto missing = start({"cameras", configure(camera_text("CAM-17"))}, "serial=cam-17");
  EXPECT_EQ(missing.wait(), 1);
  expect_parts(missing.out(),
               {"camera 'CAM-17' did not answer; others did: cam-17", "did you mean 'cam-17'?"});
  auto hostile = start({"cameras"}, "user=a\x1b[2Jb");
  EXPECT_EQ(hostile.wait(), 0);
  EXPECT_FALSE(has(hostile.out(), "\x1b")) << hostile.out();
  std::string many;
  for (int at = 0; at < 20; ++at) {
    many += fmt::format("serial=S{};", at);
  }
  auto twentieth = start({"run", configure(camera_text("S19")), "-n", "2"}, many);
  EXPECT_EQ(twentieth.wait(), 0) << "a camera beyond the eighth is put first: " << twentieth.error();
  program broken(directory, {"cameras", "-F", BROKEN_CAMERA_LIBRARY}, "");
  EXPECT_EQ(broken.wait(), 1);
  EXPECT_TRUE(has(broken.error(), "GevApiInitialize gave -1")) << broken.error();
}

TEST_F(mediagrabber, shows_and_writes_features_and_makes_a_configuration_of_them) {
  auto all = start({"features", "SIM00001"});
  EXPECT_EQ(all.wait(), 0) << all.error();
  expect_parts(all.out(), {"Root/ImageFormatControl\n", "64 to 320 in steps of 16"});
  auto one = start({"features", "SIM00001", "Width=128", "lutMode", "Gain=99", "Widht"});
  EXPECT_EQ(one.wait(), 1);
  expect_parts(one.out(), {" 128 px ", "Off, Active"});
  expect_parts(one.error(), {"Gain = 99: refused: ", "did you mean 'Width'?"});
  auto config = start({"config", "SIM00001"});
  EXPECT_EQ(config.wait(), 0) << config.error();
  EXPECT_TRUE(has(config.out(), "# This camera takes 64 to 320 in steps of 16.\nwidth = 320\n"))
      << config.out();
  auto run = start({"run", configure(config.out()), "-n", "2"});
  EXPECT_EQ(run.wait(), 0) << run.error();
  auto address = start({"address", "SIM00001", "10.0.0.1/24"});
  EXPECT_EQ(address.wait(), 1);
  EXPECT_TRUE(has(address.error(), "this camera library can't set addresses")) << address.error();
}

TEST_F(mediagrabber, check_tells_good_cameras_from_bad_ones) {
  const std::string pins = "[[camera.pin]]\nline = \"Line3\"\n";
  const std::string sweep = "[[sweep]]\nafter_seconds = 60\nexposure_us = 2500\ngain_db = 3\n";
  struct {
    std::string camera;
    std::vector<std::string> rows;  // beginnings of them, without runs of blanks
    int exitCode;
  } const cases[] = {
      {"sensor=320x240",
       {"passed library starts", "passed camera found", "passed device created",
        "passed frames arrive 150 of 150", "passed frame interval", "passed timestamps increase",
        "passed exposure read back 5000 us", "passed gain read back 0.00 dB",
        "passed sweeps take effect exposure 2500 us, gain 3 dB: read back with frame 1, grey",
        "passed IR off and on", "passed temperature", "passed ends on a signal"},
       0},
      {"serial=OTHER", {"FAILED camera found camera 'SIM00001' did not answer", "skipped device created"}, 1},
      {"sensor=64x64", {"FAILED device created", "skipped frames arrive"}, 1},
      {"sensor=320x240 fault=frame:_silent_@9",
       {"FAILED frames arrive 7 of 150", "passed ends on a signal"},
       1},
      {"sensor=320x240 fault=frame:_lost_@40_x3", {"FAILED frame interval"}, 1},
      {"sensor=320x240 fault=GevStartTransfer:_status_-15",
       {"FAILED frames arrive 0 of 150", "-> the camera refused: it stopped answering"},
       1},
      {"sensor=large", {"FAILED library starts", "-> SIM_CAMERAS describes the simulated cameras"}, 1},
      {"sensor=320x240 missing=DeviceTemperature", {"FAILED temperature none", "passed IR off and on"}, 1},
  };
  program broken(directory, {"check", configure(camera_text("SIM00001")), "-F", BROKEN_CAMERA_LIBRARY}, "");
  EXPECT_EQ(broken.wait(), 1);
  expect_parts(broken.out(), {"FAILED   library starts", "skipped  temperature"});
  for (const auto& each : cases) {
    auto run = start({"check", configure(camera_text("SIM00001", pins) + sweep)}, each.camera);
    EXPECT_EQ(run.wait(), each.exitCode) << run.out() << run.error();
    std::string table = run.out();
    for (std::size_t at = 0; (at = table.find("  ")) != std::string::npos;) {
      table.erase(at, 1);
    }
    // A machine that is too busy to take every frame can't judge the rate, and says so.
    const bool isBusy = has(table, "\n skipped frame interval") && has(table, "this machine was too busy");
    for (const std::string& row : each.rows) {
      EXPECT_TRUE(has(table, "\n " + row) || (isBusy && row == "passed frame interval"))
          << each.camera << ": no row '" << row << "' in\n"
          << table;
    }
  }
}

TEST_F(mediagrabber, draws_its_status_on_a_terminal) {
  int master = -1;
  int slave = -1;
  winsize size{.ws_row = 24, .ws_col = 40, .ws_xpixel = 0, .ws_ypixel = 0};
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
  program run(directory, {"run", configure(camera_text("SIM00001")), "-F", "sim", "-n", "80"},
              "sensor=320x240", slave);
  close(slave);
  std::string screen;
  std::array<char, 4096> part{};
  for (ssize_t got = 0; (got = read(master, part.data(), part.size())) > 0;) {
    screen.append(part.data(), static_cast<std::size_t>(got));
  }
  close(master);
  EXPECT_EQ(run.wait(), 0);
  const std::string redrawn = "\x1b[1A\r\x1b[JSIM00001 #";
  EXPECT_GE(count(screen, redrawn), 2U) << screen;
  const std::size_t line = screen.find(redrawn) + redrawn.size() - 10;
  EXPECT_LE(screen.find('\r', line) - line, 40U) << "a status line must not wrap";
}

TEST_F(mediagrabber, gives_the_journal_priorities) {
  const std::string line = fmt::format(
      "exec 2>{0}/journal; export JOURNAL_STREAM=$(stat -L -c %d:%i {0}/journal); exec {1} run {2} -F sim -n "
      "1",
      directory.string(), MEDIAGRABBER, configure(camera_text("SIM00001", "ir_level = 1\n")));
  tests::program run(directory / "host", {"sh", "-c", line});
  EXPECT_EQ(run.wait(), 0);
  const std::string journal = content(directory / "journal");
  EXPECT_TRUE(has(journal, "\n<6>20")) << journal;
  EXPECT_FALSE(has(journal, "<3>")) << "an ordinary run has no errors: " << journal;
}

TEST_F(mediagrabber, tells_systemd_that_it_lives) {
  const int socketFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = directory / "notify";
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(socketFd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  setenv("NOTIFY_SOCKET", path.c_str(), 1);
  setenv("WATCHDOG_USEC", "200000", 1);
  auto run = start({"run", configure(camera_text("SIM00001")), "-t", "1"});
  unsetenv("NOTIFY_SOCKET");
  unsetenv("WATCHDOG_USEC");
  std::string received;
  std::array<char, 256> part{};
  const auto listen = [&] {
    const ssize_t got = recv(socketFd, part.data(), part.size(), MSG_DONTWAIT);
    received += got > 0 ? std::string(part.data(), static_cast<std::size_t>(got)) + "|" : "";
    return has(received, "STOPPING=1");
  };
  EXPECT_TRUE(program::until(listen)) << received;
  EXPECT_EQ(run.wait(), 0);
  close(socketFd);
  EXPECT_EQ(count(received, "READY=1|"), 1U) << received;
  EXPECT_GE(count(received, "WATCHDOG=1|"), 4U) << received;
  EXPECT_TRUE(has(received, "STATUS=1 cameras, ")) << received;
  EXPECT_TRUE(received.ends_with("STOPPING=1|")) << received;
}

}  // namespace
