// The camera library against gvcam, an emulated camera, in a network namespace of the test's own.
#include <GenApi/GenApi.h>
#include <gevapi.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <tuple>

#include "platform/log2/log_sink.h"
#include "tests/program.h"

namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

std::filesystem::path directory;  // of the running test

// gvcam, from its start until it goes out of scope.
class emulator : public tests::program {
 public:
  explicit emulator(tests::words arguments)
      : program(directory / "gvcam", (arguments.insert(arguments.begin(), GVCAM_PROGRAM), arguments)) {
    EXPECT_TRUE(says(" on 127.0.0.")) << error();
  }
  ~emulator() { end(SIGTERM); }
  emulator(const emulator&) = delete;
  emulator& operator=(const emulator&) = delete;
};

std::mutex logMutex;
std::string logLines;

void append_log(void*, const log_line* line) {
  const std::scoped_lock lock(logMutex);
  logLines += std::string(line->text) + "\n";
}
std::string take_log() {
  const std::scoped_lock lock(logMutex);
  return std::exchange(logLines, "");
}

// The number that follows `label`.
std::uint64_t number_after(const std::string& text, const std::string& label) {
  const auto at = text.find(label);
  return at == std::string::npos ? 999'999 : std::stoull(text.substr(at + label.size()));
}

template <class Work>
clock::duration duration(Work work) {
  const auto before = clock::now();
  work();
  return clock::now() - before;
}

class network_camera : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(unshare(CLONE_NEWNET), 0) << "a network namespace of its own is refused";
    ASSERT_EQ(std::system("ip link set lo up mtu 65536 && ip addr add 127.0.0.2/8 dev lo"), 0);
  }
  void SetUp() override {
    std::string name = std::filesystem::temp_directory_path() / "gige_test.XXXXXX";
    directory = mkdtemp(name.data());
    LogSetSink(append_log, nullptr);
    take_log();
    ASSERT_EQ(GevApiInitialize(), GEVLIB_OK);
  }
  void TearDown() override {
    if (handle != nullptr) {
      EXPECT_EQ(GevCloseCamera(&handle), GEVLIB_OK);
    }
    GevApiUninitialize();
    LogSetSink(nullptr, nullptr);
    std::filesystem::remove_all(directory);
  }

  // Searches until `wanted` cameras answer, since a busy machine answers late, and returns their number.
  int search(int wanted, int room = 4) {
    int count = 0;
    for (int searches = 0; count < wanted && searches < 100; ++searches) {
      EXPECT_EQ(GevGetCameraList(cameras.data(), room, &count), GEVLIB_OK);
    }
    return count;
  }
  GEV_STATUS open() {
    EXPECT_GE(search(1), 1);
    const GEV_STATUS status = GevOpenCamera(cameras.data(), GevControlMode, &handle);
    nodes = static_cast<GenApi::CNodeMapRef*>(GevGetFeatureNodeMap(handle));
    return status;
  }
  template <class Interface>
  Interface& node(const char* name) {
    auto* const found = dynamic_cast<Interface*>(nodes->_GetNode(name));
    EXPECT_NE(found, nullptr) << name;
    return *found;
  }
  GenApi::IInteger& integer(const char* name) { return node<GenApi::IInteger>(name); }
  GenApi::IFloat& number(const char* name) { return node<GenApi::IFloat>(name); }
  GenApi::IEnumeration& choice(const char* name) { return node<GenApi::IEnumeration>(name); }

  GEV_CAMERA_OPTIONS options() {
    GEV_CAMERA_OPTIONS now{};
    EXPECT_EQ(GevGetCameraInterfaceOptions(handle, &now), GEVLIB_OK);
    return now;
  }
  void start(double hz) {
    GEV_CAMERA_OPTIONS wanted = options();
    wanted.streamPktSize = 9000;
    wanted.streamFrame_timeout_ms = 500;
    EXPECT_EQ(GevSetCameraInterfaceOptions(handle, &wanted), GEVLIB_OK);
    number("ExposureTime").SetValue(1000);
    number("AcquisitionFrameRate").SetValue(hz);
    EXPECT_EQ(GevStartTransfer(handle, UINT32_MAX), GEVLIB_OK);
  }
  // Waits for a frame, copies its record to `frame` and releases it.
  GEV_STATUS take(std::uint32_t timeoutMs = 1000) {
    GEV_BUFFER_OBJECT* got = nullptr;
    const GEV_STATUS status = GevWaitForNextFrame(handle, &got, timeoutMs);
    frame = got == nullptr ? GEV_BUFFER_OBJECT{} : *got;
    if (got != nullptr) {
      EXPECT_EQ(GevReleaseFrame(handle, got), GEVLIB_OK);
    }
    return status;
  }
  // Takes frames until a wait ends otherwise.
  GEV_STATUS take_until_failure(std::uint32_t timeoutMs) {
    GEV_STATUS status = GEVLIB_OK;
    while (status == GEVLIB_OK || status == GEVLIB_ERROR_FRAME_INCOMPLETE) {
      status = take(timeoutMs);
    }
    return status;
  }

  std::array<GEV_DEVICE_INTERFACE, 4> cameras{};
  GEV_CAMERA_HANDLE handle = nullptr;
  GenApi::CNodeMapRef* nodes = nullptr;
  GEV_BUFFER_OBJECT frame{};
};

// Catches a search that misses cameras, overruns the caller's array, or says nothing where there is none.
TEST_F(network_camera, is_listed_and_an_empty_network_is_explained) {
  int count = -1;
  EXPECT_EQ(GevGetCameraList(cameras.data(), 4, &count), GEVLIB_OK);
  EXPECT_EQ(count, 0);
  EXPECT_TRUE(tests::has(take_log(), "no camera answered"));
  const emulator two({"--serial", "ONE", "TWO", "--address", "127.0.0.1", "127.0.0.2", "--picture", "still"});
  EXPECT_EQ(search(2, 1), 2);
  EXPECT_STREQ(cameras[0].serial, "ONE");
  EXPECT_EQ(cameras[0].ipAddr, 0x7f000001U);
  EXPECT_STREQ(cameras[1].serial, "");
}

// Catches control that a second client takes away, or a monitor that writes.
TEST_F(network_camera, has_one_client_in_control_and_any_number_of_monitors) {
  const emulator one({"--picture", "still"});
  ASSERT_EQ(open(), GEVLIB_OK) << take_log();
  GEV_CAMERA_HANDLE second = nullptr;
  EXPECT_EQ(GevOpenCamera(cameras.data(), GevControlMode, &second), GEVLIB_ERROR_ACCESS_DENIED);
  EXPECT_TRUE(tests::has(take_log(), "GV000001 at 127.0.0.1 is controlled by"));
  ASSERT_EQ(GevOpenCamera(cameras.data(), GevMonitorMode, &second), GEVLIB_OK);
  auto* const monitored = static_cast<GenApi::CNodeMapRef*>(GevGetFeatureNodeMap(second));
  auto* const exposure = dynamic_cast<GenApi::IFloat*>(monitored->_GetNode("ExposureTime"));
  EXPECT_EQ(exposure->GetAccessMode(), GenApi::RO);
  EXPECT_THROW(exposure->SetValue(100), GenICam::AccessException);
  EXPECT_EQ(GevCloseCamera(&second), GEVLIB_OK);
  number("ExposureTime").SetValue(2000);  // control is still with the first
  cameras[0].ipAddr = 0x7f000009;
  EXPECT_EQ(GevOpenCamera(cameras.data(), GevControlMode, &second), GEVLIB_ERROR_DEVICE_NOT_FOUND);
}

// Catches features that do not reach the node map or the C API, and settings that a transfer does not lock.
TEST_F(network_camera, presents_its_features_and_locks_them_during_a_transfer) {
  const emulator one({"--picture", "still"});
  ASSERT_EQ(open(), GEVLIB_OK) << take_log();
  EXPECT_EQ(nodes->_GetNode("Nothing"), nullptr);
  EXPECT_EQ(integer("Width").GetInc(), 16);
  EXPECT_EQ(integer("Width").GetMax(), 1280);
  EXPECT_EQ(number("DeviceTemperature").GetAccessMode(), GenApi::RO);
  EXPECT_THROW(integer("Width").SetValue(321), GenICam::OutOfRangeException);
  for (const char* selected : {"SensorAll", "DigitalAll"}) {
    choice("GainSelector").FromString(selected);
    number("Gain").SetValue(*selected == 'S' ? 2.0 : 3.0);
  }
  choice("GainSelector").FromString("SensorAll");
  EXPECT_EQ(number("Gain").GetValue(), 2.0);
  std::uint32_t format = fmtMono8;
  EXPECT_EQ(GevSetFeatureValue(handle, "PixelFormat", sizeof format, &format), GEVLIB_OK);
  EXPECT_EQ(GevSetFeatureValue(handle, "Nothing", sizeof format, &format), GEVLIB_ERROR_FEATURE_NOT_FOUND);
  start(30);
  EXPECT_THROW(integer("Width").SetValue(320), GenICam::AccessException);
  EXPECT_EQ(GevAbortTransfer(handle), GEVLIB_OK);
  integer("Width").SetValue(320);
}

// Catches more than one command a frame, frames that are not the camera's, and buffers that a restart loses.
TEST_F(network_camera, sends_frames_for_one_command_each) {
  const emulator one({"--sensor", "640x480", "--picture", "still"});
  ASSERT_EQ(open(), GEVLIB_OK) << take_log();
  choice("DeviceTemperatureSelector").FromString("Internal");
  choice("GainSelector").FromString("SensorAll");
  // Lock, mode, start, stop and two values; the first start also sets the destination and tries packet sizes.
  std::uint64_t allowedBeside = 24;
  for (const std::uint64_t frames : {40U, 120U, 40U}) {
    start(100);
    number("Gain").GetValue();
    number("ExposureTime").GetValue();
    std::uint64_t earlier = 0;
    for (std::uint64_t at = 0; at < frames; ++at) {
      ASSERT_EQ(take(), GEVLIB_OK);
      EXPECT_EQ(frame.id, at + 1) << "of " << frames;
      EXPECT_EQ(std::tuple(frame.w, frame.h, frame.d, frame.recv_size, frame.format),
                std::tuple(640U, 480U, 1U, 640U * 480, fmtMono8));
      EXPECT_NE(frame.address, nullptr);
      EXPECT_EQ(frame.timestamp, std::uint64_t{frame.timestamp_hi} << 32U | frame.timestamp_lo);
      EXPECT_GT(frame.timestamp, earlier);
      earlier = frame.timestamp;
      choice("DeviceTemperatureSelector").FromString("Internal");
      number("DeviceTemperature").GetValue();
      choice("GainSelector").FromString("SensorAll");
      number("Gain").GetValue();
      number("ExposureTime").GetValue();
    }
    take_log();
    EXPECT_EQ(GevAbortTransfer(handle), GEVLIB_OK);
    const std::string log = take_log();
    EXPECT_TRUE(tests::has(log, "incomplete:0, missing:0, refused:0, dropped:0")) << log;
    EXPECT_LE(number_after(log, "commands to GV000001 during the transfer:"), frames + allowedBeside) << log;
    allowedBeside = 12;
    EXPECT_EQ(take(10), GEVLIB_ERROR_TIME_OUT);
  }
  EXPECT_EQ(GevFreeTransfer(handle), GEVLIB_OK);
  EXPECT_EQ(GevFreeTransfer(handle), GEVLIB_ERROR_TRANSFER_NOT_ACTIVE);
}

// Catches a damaged frame that passes as a good one, and a wait that outlasts its transfer.
TEST_F(network_camera, marks_incomplete_frames_and_ends_waits_at_an_abort) {
  const emulator one({"--picture", "still", "--resend", "off"});
  ASSERT_EQ(open(), GEVLIB_OK) << take_log();
  one.type("loss 0.002");
  start(50);
  int incomplete = 0;
  for (int waits = 0; incomplete < 3 && waits < 1000; ++waits) {
    const GEV_STATUS status = take();
    EXPECT_EQ(frame.address == nullptr, status != GEVLIB_OK) << status;
    incomplete += status == GEVLIB_ERROR_FRAME_INCOMPLETE ? 1 : 0;
  }
  EXPECT_EQ(incomplete, 3);
  one.type("silent on");
  EXPECT_EQ(take_until_failure(100), GEVLIB_ERROR_TIME_OUT);
  std::thread aborts([&] {
    std::this_thread::sleep_for(100ms);
    GevAbortTransfer(handle);
  });
  EXPECT_LT(duration([&] { EXPECT_EQ(take(60'000), GEVLIB_ERROR_ABORTED); }), 30s);
  aborts.join();
}

// Catches an option that has no effect, and one that is kept although it was refused.
TEST_F(network_camera, takes_options) {
  const emulator one({"--picture", "still"});
  ASSERT_EQ(open(), GEVLIB_OK) << take_log();
  GEV_CAMERA_OPTIONS wanted = options();
  wanted.heartbeat_timeout_ms = 4321;
  wanted.streamPktSize = 4000;
  wanted.streamMemoryLimitMax = 1'000'000;
  EXPECT_EQ(GevSetCameraInterfaceOptions(handle, &wanted), GEVLIB_OK);
  EXPECT_EQ(integer("GevSCPSPacketSize").GetValue(), 4000);
  EXPECT_EQ(GevStartTransfer(handle, UINT32_MAX), GEVLIB_ERROR_NO_MEMORY);
  wanted.streamNumFramesBuffered = 0;
  EXPECT_EQ(GevSetCameraInterfaceOptions(handle, &wanted), GEVLIB_ERROR_PARAMETER_INVALID);
  EXPECT_EQ(options().heartbeat_timeout_ms, 4321U);
  EXPECT_NE(options().streamNumFramesBuffered, 0U);
}

// Catches frames with chunks, which the bundle asks for, or 64-bit numbers that are read wrongly.
TEST_F(network_camera, sends_every_form_of_frames) {
  for (const char* chunks : {"standard", "extended"}) {
    for (const char* ids : {"standard", "extended"}) {
      const emulator one({"--sensor", "64x64", "--chunks", chunks, "--ids", ids});
      ASSERT_EQ(open(), GEVLIB_OK) << take_log();
      node<GenApi::IBoolean>("ChunkModeActive").SetValue(true);
      choice("ChunkSelector").FromString("Gain");
      node<GenApi::IBoolean>("ChunkEnable").SetValue(true);
      start(30);
      for (std::uint64_t id = 1; id <= 3; ++id) {
        EXPECT_EQ(take(), GEVLIB_OK) << chunks << " chunks, " << ids << " ids";
        EXPECT_EQ(frame.id, id);
        EXPECT_EQ(frame.w * frame.h, 64U * 64);
        EXPECT_GT(frame.recv_size, 64U * 64);
        EXPECT_NE(frame.address, nullptr);
      }
      EXPECT_EQ(GevCloseCamera(&handle), GEVLIB_OK);
    }
  }
}

// Catches what works with our own emulation only: this one does not say where its frames come from.
TEST_F(network_camera, may_be_of_another_make) {
  const tests::program fake(directory / "fake", {"arv-fake-gv-camera-0.8", "-i", "127.0.0.1", "-s", "FAKE1"});
  ASSERT_EQ(open(), GEVLIB_OK) << take_log();
  ASSERT_EQ(GevStartTransfer(handle, UINT32_MAX), GEVLIB_OK) << take_log();
  const std::int64_t pixels = integer("Width").GetValue() * integer("Height").GetValue();
  int whole = 0;
  for (int waits = 0; whole < 5 && waits < 100; ++waits) {
    if (take() == GEVLIB_OK) {
      EXPECT_EQ(frame.recv_size, pixels);
      ++whole;
    }
  }
  EXPECT_EQ(whole, 5) << take_log();
}

// Catches a loss that only time-outs show, a close that waits for the camera, and one that is lost for good.
TEST_F(network_camera, is_lost_when_control_is_taken_or_it_dies_and_may_be_opened_again) {
  const emulator one({"--picture", "still"});
  for (const bool dies : {false, true}) {
    ASSERT_EQ(open(), GEVLIB_OK) << take_log();
    start(50);
    ASSERT_EQ(take(), GEVLIB_OK);
    dies ? one.type("die") : choice("GevCCP").FromString("OpenAccess");
    EXPECT_LT(duration([&] { EXPECT_EQ(take_until_failure(60'000), GEVLIB_ERROR_DEVICE_LOST); }), 30s);
    EXPECT_TRUE(tests::has(take_log(), dies ? "GV000001 is lost: it does not answer any more"
                                            : "GV000001 is lost: control was taken away"));
    EXPECT_THROW(number("ExposureTime").SetValue(50), GenICam::TimeoutException);
    EXPECT_LT(duration([&] { EXPECT_EQ(GevCloseCamera(&handle), GEVLIB_OK); }), 1s);
  }
  one.type("back");
  ASSERT_EQ(open(), GEVLIB_OK) << take_log();
  start(50);
  EXPECT_EQ(take(), GEVLIB_OK);
}

}  // namespace
