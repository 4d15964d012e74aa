// The built program, end to end over GigE Vision: mediagrabber, the bundle and the camera library on one
// side, gvcam or Aravis's own emulator on the other, in a network that only this test has.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>

#include "platform/gvcam/registers.h"
#include "platform/picture/picture.h"
#include "tests/own_network.h"
#include "tests/program.h"
#include "tests/wire/command_recorder.h"

namespace wire_test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using picture::picture_settings;
using testing::AllOf;
using testing::HasSubstr;
using tests::clock_type;
using tests::content;
using tests::has;
using tests::program;
using tests::words;

constexpr const char* kSerial = "GV000001";
constexpr std::size_t kSensorWidth = 320;
constexpr std::size_t kSensorHeight = 240;
constexpr double kRateHz = 50;
constexpr double kHang = 10;           // seconds, ten times what the end of a run may take
constexpr unsigned kLongestGap = 200;  // in the numbers of recorded frames

bool hasNetwork = false;  // of its own

struct window {
  std::size_t x, y, width, height;
};
constexpr window kWhole = {0, 0, kSensorWidth, kSensorHeight};
constexpr window kCorner = {160, 120, 160, 120};

// What frames show. An acquisition numbers its frames from 1.
struct state {
  picture_settings settings;
  bool isRestarted = false;  // begins with an acquisition
};

// A recorded frame: the state that it shows, and the number that its camera gave it.
struct shown {
  std::size_t state = 0;
  unsigned number = 0;
};

state seen_through(const window& at, bool isRotated = false) {
  picture_settings settings;
  settings.noise = false;
  settings.offsetX = at.x;
  settings.offsetY = at.y;
  settings.width = at.width;
  settings.height = at.height;
  settings.reverseX = settings.reverseY = isRotated;
  return {settings};
}

std::string camera_text(const std::string& serial, const window& at, const std::string& more = "") {
  return fmt::format(
      "[[camera]]\nserial = \"{}\"\nframe_rate_hz = {}\noffset_x = {}\noffset_y = {}\nwidth = {}\nheight = "
      "{}\n"
      "exposure_us = 5000\ngain_db = 0\n{}\n",
      serial, kRateHz, at.x, at.y, at.width, at.height, more);
}

words joined(words first, const words& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// The number behind some words of the log; -1 without them.
long number_after(const std::string& text, const std::string& before) {
  const std::size_t at = text.find(before);
  return at == std::string::npos ? -1 : std::atol(text.c_str() + at + before.size());
}

class wire : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(hasNetwork) << "there is no network for the test alone";
    std::string name = fs::temp_directory_path() / "wire_test.XXXXXX";
    directory = mkdtemp(name.data());
  }
  void TearDown() override { fs::remove_all(directory); }

  std::string configure(const std::string& text) const {
    std::ofstream(directory / "c.toml") << text;
    return directory / "c.toml";
  }
  words gvcam(const words& more = {}) const {
    return joined({GVCAM, "--noise", "off", "--sensor", fmt::format("{}x{}", kSensorWidth, kSensorHeight)},
                  more);
  }
  program host(const words& arguments) const {
    return {directory / "host", joined({MEDIAGRABBER}, arguments)};
  }
  program run(const std::string& config, const words& more = {}) const {
    return host(joined({"run", configure(config), "-v", "-r", directory / "rec", "-f", "raw"}, more));
  }

  // What the camera must have sent as frame `number`.
  std::string sent(picture_settings settings, unsigned number) const {
    settings.timeUs = static_cast<std::uint64_t>(number * std::max(1e6 / kRateHz, settings.exposureUs));
    std::string pixels(settings.width * settings.height, '\0');
    picture::draw(scene, settings, reinterpret_cast<std::uint8_t*>(pixels.data()));
    return pixels;
  }
  // Which frame after that `before` has these pixels, byte for byte. States follow each other.
  std::optional<shown> next_shown(const std::string& pixels, const std::vector<state>& states,
                                  const shown& before) const {
    for (unsigned gap = 1; gap <= kLongestGap; ++gap) {
      unsigned last = before.number;
      for (std::size_t at = before.state; at < states.size(); ++at) {
        last = at > before.state && states[at].isRestarted ? 0 : last;
        if (sent(states[at].settings, last + gap) == pixels) {
          return shown{at, last + gap};
        }
      }
    }
    return std::nullopt;
  }
  // All recorded frames of a camera; a failure when one is not what the camera sent.
  std::vector<shown> recorded(const std::vector<state>& states, const std::string& serial = kSerial) const {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(directory / "rec" / serial)) {
      if (entry.path().extension() == ".raw") {
        files.push_back(entry.path());
      }
    }
    std::sort(files.begin(), files.end());
    std::vector<shown> frames;
    for (const fs::path& file : files) {
      const auto next = next_shown(content(file), states, frames.empty() ? shown{} : frames.back());
      if (!next) {
        ADD_FAILURE() << serial << ": the camera did not send " << file.filename() << " of " << files.size();
        break;
      }
      frames.push_back(*next);
    }
    return frames;
  }

  fs::path directory;
  const picture::scene scene{kSensorWidth, kSensorHeight};
};

// gvcam, once all of its cameras answer.
class camera : public program {
 public:
  camera(const fs::path& directory, const words& line, std::size_t cameras = 1)
      : program(directory / "gvcam", line) {
    EXPECT_TRUE(says(" on 127.0.0.", cameras)) << error();
  }
  ~camera() { end(SIGTERM); }
  camera(const camera&) = delete;
  camera& operator=(const camera&) = delete;
};

TEST_F(wire, lists_and_checks_a_camera) {
  camera there(directory, gvcam());
  auto list = host({"cameras"});
  EXPECT_EQ(list.wait(), 0) << list.error();
  EXPECT_TRUE(has(list.out(), "\nGV000001             gvcam                    127.0.0.1 ")) << list.out();
  auto missing = host({"cameras", "-c", "GV000002"});
  EXPECT_EQ(missing.wait(), 1);
  EXPECT_TRUE(has(missing.out(), "'GV000002' did not answer; others did: GV000001")) << missing.out();
  auto check = host({"check", configure(camera_text(kSerial, kCorner,
                                                    "[[camera.pin]]\nline = \"Line4\"\n"
                                                    "[[sweep]]\nafter_frames = 1\nexposure_us = 2500\n"
                                                    "[[sweep]]\nafter_frames = 1\ngamma = 2.0\n"))});
  EXPECT_EQ(check.wait(), 0) << check.error();
  EXPECT_TRUE(has(check.out(), "13 passed, 0 failed, 0 skipped")) << check.out();
}

TEST_F(wire, every_setting_shows_in_every_pixel) {
  camera there(directory, gvcam());
  auto host =
      run(camera_text(
              kSerial, kCorner,
              "[[camera.pin]]\nline = \"Line3\"\nsource = \"exposure_ratio\"\nexposure_ratio = 50\n"
              "[[sweep]]\nafter_frames = 10\nexposure_us = 2500\ngain_db = 3\nir_level = 1\n"
              "[[sweep]]\nafter_frames = 10\ngamma = 2.0\n"
              "[[sweep]]\nafter_frames = 10\nexposure_us = 5000\ngain_db = 0\ngamma = 1.0\nir_level = 0\n"),
          {"-n", "45"});
  EXPECT_EQ(host.wait(), 0) << host.error();

  // In the order of the driver's writes, as a frame may begin between two of them. Gamma is changed between
  // two acquisitions.
  std::vector<state> states = {seen_through(kCorner)};
  const auto then = [&](auto change, bool isRestarted = false) {
    states.push_back({states.back().settings, isRestarted});
    change(states.back().settings);
  };
  then([](auto& now) { now.gain = static_cast<double>(std::pow(10.0F, 3.0F / 20.0F)); });
  then([](auto& now) { now.exposureUs = 2500; });
  then([](auto& now) { now.infraredUs[0] = 1250; });
  then([](auto& now) { now.tone = picture::tone_curve::gamma, now.gamma = 2; }, true);
  then([](auto& now) { now.gain = 1; });
  then([](auto& now) { now.exposureUs = 5000; });
  then([](auto& now) { now = seen_through(kCorner).settings; }, true);
  const auto frames = recorded(states);
  EXPECT_EQ(frames.size(), 45U) << host.error();
  for (const std::size_t wanted : {0U, 3U, 4U, 7U}) {
    const auto shows = [=](const shown& frame) { return frame.state == wanted; };
    EXPECT_GE(std::count_if(frames.begin(), frames.end(), shows), 5) << "frames of state " << wanted;
  }
}

// No register is read, and no selector that has its value already is written. The transfer is stopped and
// started once.
TEST_F(wire, a_sweep_takes_one_command_for_each_setting) {
  camera there(directory, gvcam());
  const command_recorder recorder;
  auto host = run(camera_text(kSerial, kWhole,
                              "[[camera.pin]]\nline = \"Line3\"\n[[sweep]]\nafter_frames = 10\n"
                              "exposure_us = 2500\ngain_db = 3\ngamma = 2.0\nir_level = 1\n"),
                  {"-n", "20"});
  EXPECT_EQ(host.wait(), 0) << host.error();
  const auto text_of = [](const command& each) {
    return fmt::format("{}{:04x} ", each.isWrite ? "w" : "r", each.address);
  };
  std::string sent;
  for (const command& each : recorder.take()) {
    const bool isHeartbeat =
        each.address < 0x100 || each.address == gige_protocol::registers::controlChannelPrivilege;
    sent += isHeartbeat ? "" : text_of(each);
  }
  constexpr std::uint32_t line3 = 2 * 4;
  std::string sweep;
  for (const std::uint32_t address :
       {gvcam::features::gain, gvcam::features::exposureTimeUs, gvcam::features::acquisition,
        gvcam::features::lutType, gvcam::features::lutMode, gvcam::features::gammaCorrection,
        gvcam::features::lineSource + line3, gvcam::features::lineInverter + line3,
        gvcam::features::pulseDelayUs + line3, gvcam::features::pulseDurationUs + line3,
        gvcam::features::acquisition}) {
    sweep += text_of({true, address});
  }
  EXPECT_THAT(sent, HasSubstr(sweep));
}

TEST_F(wire, a_window_is_written_in_the_order_that_the_camera_takes) {
  struct {
    const char* name;
    words preset;  // before the host comes, by another client
    window at;
    bool isRotated;
  } const cases[] = {
      {"as it is", {}, kWhole, false},
      {"the size first", {}, kCorner, true},
      {"the offset first", {"Width=160", "OffsetX=160", "Height=120", "OffsetY=120"}, kWhole, true},
      {"any first", {"Width=160", "OffsetX=160"}, {80, 4, 160, 64}, false}};
  for (const auto& each : cases) {
    camera there(directory, gvcam({"--on-close", "keep"}));
    if (!each.preset.empty()) {
      program other(directory / "other", joined({"arv-tool-0.8", "-a", "127.0.0.1", "control"}, each.preset));
      EXPECT_EQ(other.wait(), 0);
      ASSERT_TRUE(has(other.out(), "OffsetX = 160")) << other.out() << other.error();
    }
    auto host =
        run(camera_text(kSerial, each.at, fmt::format("rotate180 = {}\n", each.isRotated)), {"-n", "4"});
    EXPECT_EQ(host.wait(), 0) << each.name << host.error();
    EXPECT_EQ(recorded({seen_through(each.at, each.isRotated)}).size(), 4U) << each.name;
    fs::remove_all(directory / "rec");
  }
}

TEST_F(wire, a_camera_of_another_make_is_refused_for_what_it_lacks) {
  const program there(directory / "fake", {"arv-fake-gv-camera-0.8", "-i", "127.0.0.1", "-s", "FAKE1"});
  EXPECT_TRUE(program::until([&] {
    auto list = host({"cameras"});
    return list.wait() == 0 && has(list.out(), "\nFAKE1                Fake                     127.0.0.1 ");
  }));
  const std::string config = camera_text("FAKE1", kCorner);
  auto refused = run(config, {"--no-restart"});
  EXPECT_EQ(refused.wait(), 1);
  EXPECT_THAT(refused.error(), AllOf(HasSubstr(": done: camera FAKE1 at 127.0.0.1 opened from 127.0.0.1"),
                                     HasSubstr("getValue: fail: INodeMap::GetNode (name:ExposureTime)"),
                                     HasSubstr("Driver__CreateDevice: fail"),
                                     HasSubstr("ExposureTime: the camera does not have it")));
  auto check = host({"check", configure(config)});
  EXPECT_EQ(check.wait(), 1);
  EXPECT_THAT(check.out(),
              AllOf(HasSubstr("passed   camera found          Fake"),
                    HasSubstr("FAILED   device created        the camera does not take the configuration"),
                    HasSubstr("-> ExposureTime: the camera does not have it")));
}

TEST_F(wire, four_cameras_run_at_once) {
  camera there(directory, gvcam({"--address", "127.0.0.1,127.0.0.2,127.0.0.3,127.0.0.4"}), 4);
  const std::pair<std::string, window> cameras[] = {{"GV000001", kCorner},
                                                    {"GV000002", {0, 0, 320, 64}},
                                                    {"GV000003", {64, 100, 64, 140}},
                                                    {"GV000004", {160, 120, 128, 64}}};
  std::string config;
  for (const auto& [serial, at] : cameras) {
    config += camera_text(serial, at);
  }
  auto host = run(config, {"-n", "25"});
  EXPECT_EQ(host.wait(), 0) << host.error();
  for (const auto& [serial, at] : cameras) {
    EXPECT_EQ(recorded({seen_through(at)}, serial).size(), 25U) << host.error();
  }
}

TEST_F(wire, a_second_host_is_told_why_and_the_first_goes_on_until_its_end) {
  camera there(directory, gvcam({"--on-close", "reset"}));
  const std::string config = camera_text(kSerial, kCorner);
  program first(directory / "first", {MEDIAGRABBER, "run", configure(config), "-r", directory / "rec", "-f",
                                      "raw", "-s", directory / "stats"});
  ASSERT_TRUE(first.says("acquisition starts")) << first.error();
  auto second = host({"run", configure(config), "--no-restart"});
  EXPECT_EQ(second.wait(), 1);
  EXPECT_THAT(
      second.error(),
      AllOf(HasSubstr("GevOpenCamera: fail: camera GV000001 at 127.0.0.1 is controlled by 127.0.0.1 port "),
            HasSubstr("camera 'GV000001' can't be opened: another program controls it")));
  std::this_thread::sleep_for(1200ms);
  EXPECT_LT(first.end(SIGTERM), kHang);
  EXPECT_TRUE(has(first.error(), " 0 device failures")) << first.error();
  EXPECT_TRUE(has(content(directory / "stats"), R"("stat":{"temp":41.)")) << content(directory / "stats");
  EXPECT_GE(recorded({seen_through(kCorner)}).size(), 40U) << first.error();
  auto third = host({"run", configure(config), "--no-restart", "-n", "2"});
  EXPECT_EQ(third.wait(), 0) << "control was not given back: " << third.error();
}

TEST_F(wire, a_camera_that_died_is_found_again) {
  camera there(directory, gvcam());
  auto host = run(camera_text(kSerial, kCorner));
  ASSERT_TRUE(host.says("acquisition starts")) << host.error();
  std::this_thread::sleep_for(500ms);
  there.type("die");
  EXPECT_TRUE(host.says("camera GV000001 is lost: it does not answer any more")) << host.error();
  ASSERT_TRUE(host.says("the device failed (1 in a row)"))
      << "the run goes on without a camera: " << host.error();
  there.type("back");
  EXPECT_TRUE(host.says("acquisition starts", 2)) << host.error();
  std::this_thread::sleep_for(500ms);
  EXPECT_LT(host.end(SIGTERM), kHang);
  auto again = seen_through(kCorner);
  again.isRestarted = true;
  const auto frames = recorded({seen_through(kCorner), again});
  ASSERT_FALSE(frames.empty()) << host.error();
  EXPECT_EQ(frames.back().state, 1U) << host.error();
  EXPECT_EQ(there.error(), "");
}

TEST_F(wire, the_program_ends_whatever_a_camera_does) {
  for (const char* fault :
       {"stall all 60000", "stall description 300", "stall 0xA010 60000", "garbage on", "silent on"}) {
    camera there(directory, gvcam({"--fault", fault}));
    auto host = run(camera_text(kSerial, kCorner));
    ASSERT_TRUE(host.says("Driver__Init: done")) << fault << host.error();
    std::this_thread::sleep_for(700ms);
    EXPECT_LT(host.end(SIGTERM, 1), kHang) << fault;  // no frame came
    fs::remove_all(directory / "rec");
  }
}

TEST_F(wire, frames_that_lost_packets_are_counted_and_never_handed_over) {
  camera there(directory, gvcam({"--fault", "loss 0.01", "--resend", "off"}));
  auto host = run(camera_text(kSerial, kCorner, "packet_size_max = 1500"), {"-t", "4"});
  EXPECT_EQ(host.wait(), 0) << host.error();
  // Of 16 packets each: about one frame of seven breaks.
  const auto frames = recorded({seen_through(kCorner)});
  ASSERT_GT(frames.size(), 100U) << "a lost packet costs more than its frame: " << host.error();
  // The first one is never handed over, and some may be waiting when the run ends.
  const long whole = number_after(host.error(), "(whole:") - static_cast<long>(frames.size()) - 1;
  EXPECT_THAT(whole, AllOf(testing::Ge(0), testing::Le(5))) << host.error();
  const long gaps = static_cast<long>(frames.back().number - frames.front().number + 1 - frames.size());
  EXPECT_GT(gaps, 0);
  EXPECT_GE(number_after(host.error(), "incomplete:") + number_after(host.error(), "missing:"), gaps)
      << host.error();
  EXPECT_GT(number_after(host.error().substr(host.error().rfind(" frames in ")), "/s, "), 0)
      << "no missed frames in the summary: " << host.error();
}

TEST_F(wire, a_killed_host_leaves_a_camera_that_can_be_had_again) {
  camera there(directory, gvcam());
  const std::string config = camera_text(kSerial, kCorner, "gamma = 2.0");
  auto killed = run(config);
  ASSERT_TRUE(killed.says("acquisition starts")) << killed.error();
  std::this_thread::sleep_for(300ms);
  killed.signal(SIGKILL);
  EXPECT_EQ(killed.wait(), -1);
  fs::remove_all(directory / "rec");
  // It tries 0, 1, 3, 7 and 15 seconds after its start, which must not keep the camera from noticing.
  const auto began = clock_type::now();
  auto next = run(camera_text(kSerial, kCorner), {"-n", "5"});
  EXPECT_EQ(next.wait(), 0) << next.error();
  EXPECT_LT(clock_type::now() - began, 14s);
  EXPECT_EQ(recorded({seen_through(kCorner)}).size(), 5U);
}

}  // namespace
}  // namespace wire_test

int main(int argc, char** argv) {
  wire_test::hasNetwork =
      test::enter_own_network() &&
      std::system("for last in 2 3 4; do ip address add 127.0.0.$last/8 dev lo || exit 1; done") == 0;
  setenv("GIGE_DISCOVERY_MS", "2000", 1);  // a busy machine answers a search late
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
