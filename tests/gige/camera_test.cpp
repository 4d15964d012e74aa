// The library of network cameras against gvcam, an emulated camera on the network, in a network of the test's
// own.
#include <GenApi/GenApi.h>
#include <arpa/inet.h>
#include <gevapi.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "platform/log2/log_sink.h"
#include "tests/program.h"
#include "tests/wire/command_recorder.h"

namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

bool enterOwnNetwork() {
  if (unshare(CLONE_NEWNET) != 0) {
    return false;
  }
  const int any = socket(AF_INET, SOCK_DGRAM, 0);
  ifreq loopback{};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP;
  const bool up = ioctl(any, SIOCSIFFLAGS, &loopback) == 0;
  loopback.ifr_mtu = 65'536;
  const bool wide = ioctl(any, SIOCSIFMTU, &loopback) == 0;
  std::strcpy(loopback.ifr_name, "lo:1");  // an address for a second camera
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, "127.0.0.2", &address.sin_addr);
  std::memcpy(&loopback.ifr_addr, &address, sizeof address);
  const bool second = ioctl(any, SIOCSIFADDR, &loopback) == 0;
  close(any);
  return up && wide && second;
}

std::filesystem::path directory;  // of the running test

/// An emulated camera, from its start until it goes out of scope.
class emulator : public tests::program {
 public:
  explicit emulator(tests::words arguments)
      : program(directory / "gvcam", (arguments.insert(arguments.begin(), GVCAM_PROGRAM), arguments)) {
    EXPECT_TRUE(says(" on 127.0.0.")) << error();
  }
  ~emulator() { end(SIGTERM); }
  emulator(const emulator&) = delete;
  emulator& operator=(const emulator&) = delete;

  void tell(const std::string& command) const {
    type(command);
    std::this_thread::sleep_for(100ms);
  }
};

/// The file of gvcam's description with that part replaced.
std::string description(const std::string& part, const std::string& by) {
  tests::program dump(directory / "dump", {GVCAM_PROGRAM, "--dump-xml"});
  EXPECT_EQ(dump.wait(), 0);
  std::string xml = dump.out();
  xml.replace(xml.find(part), part.size(), by);
  std::ofstream(directory / "own.xml") << xml;
  return directory / "own.xml";
}

std::mutex logMutex;
std::string logged;

void keepLog(void*, const log_line* line) {
  const std::scoped_lock lock(logMutex);
  logged += std::string(line->text) + "\n";
}
std::string takeLog() {
  const std::scoped_lock lock(logMutex);
  return std::exchange(logged, "");
}

class gige_camera : public testing::Test {
 protected:
  void SetUp() override {
    static const bool own = enterOwnNetwork();
    ASSERT_TRUE(own) << "a network of its own is refused: " << std::strerror(errno);
    std::string name = std::filesystem::temp_directory_path() / "gige_test.XXXXXX";
    directory = mkdtemp(name.data());
    LogSetSink(keepLog, nullptr);
    takeLog();
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

  // How many cameras there are, once there are so many: a busy machine answers a search late.
  int search(int wanted, int room = 4) {
    int count = 0;
    for (int searches = 0; count < wanted && searches < 100; ++searches) {
      EXPECT_EQ(GevGetCameraList(cameras.data(), room, &count), GEVLIB_OK);
    }
    return count;
  }

  GEV_STATUS open(GevAccessMode mode = GevControlMode) {
    EXPECT_GE(search(1), 1);
    const GEV_STATUS status = GevOpenCamera(cameras.data(), mode, &handle);
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

  void start(double hz, std::uint32_t buffers = 4) {
    GEV_CAMERA_OPTIONS options{};
    EXPECT_EQ(GevGetCameraInterfaceOptions(handle, &options), GEVLIB_OK);
    options.streamPktSize = 9000;
    options.streamNumFramesBuffered = buffers;
    options.streamFrame_timeout_ms = 500;
    EXPECT_EQ(GevSetCameraInterfaceOptions(handle, &options), GEVLIB_OK);
    number("ExposureTime").SetValue(1000);
    number("AcquisitionFrameRate").SetValue(hz);
    EXPECT_EQ(GevStartTransfer(handle, UINT32_MAX), GEVLIB_OK);
  }
  // Waits and releases; what came stands in `frame`.
  GEV_STATUS take(std::uint32_t timeoutMs = 1000) {
    GEV_BUFFER_OBJECT* got = nullptr;
    const GEV_STATUS status = GevWaitForNextFrame(handle, &got, timeoutMs);
    frame = got == nullptr ? GEV_BUFFER_OBJECT{} : *got;
    if (got != nullptr) {
      EXPECT_EQ(GevReleaseFrame(handle, got), GEVLIB_OK);
    }
    return status;
  }

  std::array<GEV_DEVICE_INTERFACE, 4> cameras{};
  GEV_CAMERA_HANDLE handle = nullptr;
  GenApi::CNodeMapRef* nodes = nullptr;
  GEV_BUFFER_OBJECT frame{};
};

std::uint64_t numberAfter(const std::string& text, const std::string& label) {
  const auto at = text.find(label);
  return at == std::string::npos ? 999'999 : std::stoull(text.substr(at + label.size()));
}

template <class Work>
clock::duration duration(Work work) {
  const auto before = clock::now();
  work();
  return clock::now() - before;
}

// Catches a search that misses cameras or says nothing when there is none, and control that is not really
// had.
TEST_F(gige_camera, finds_cameras_and_takes_control_of_one) {
  int count = -1;
  EXPECT_EQ(GevGetCameraList(cameras.data(), 4, &count), GEVLIB_OK);
  EXPECT_EQ(count, 0);
  EXPECT_NE(takeLog().find("no camera answered"), std::string::npos);

  const emulator two({"--serial", "ONE", "TWO", "--address", "127.0.0.1", "127.0.0.2", "--picture", "still"});
  EXPECT_EQ(search(2, 1), 2);
  EXPECT_STREQ(cameras[0].serial, "ONE");
  EXPECT_EQ(cameras[0].ipAddr, 0x7f000001U);
  EXPECT_STREQ(cameras[1].serial, "");

  ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
  GEV_CAMERA_HANDLE second = nullptr;
  EXPECT_EQ(GevOpenCamera(cameras.data(), GevControlMode, &second), GEVLIB_ERROR_ACCESS_DENIED);
  EXPECT_NE(takeLog().find("ONE at 127.0.0.1 is controlled by"), std::string::npos);
  EXPECT_EQ(GevOpenCamera(cameras.data(), GevMonitorMode, &second), GEVLIB_OK);
  auto* const watched = static_cast<GenApi::CNodeMapRef*>(GevGetFeatureNodeMap(second));
  auto* const exposure = dynamic_cast<GenApi::IFloat*>(watched->_GetNode("ExposureTime"));
  EXPECT_EQ(exposure->GetAccessMode(), GenApi::RO);
  EXPECT_THROW(exposure->SetValue(100), GenICam::AccessException);
  EXPECT_EQ(GevCloseCamera(&second), GEVLIB_OK);
  number("ExposureTime").SetValue(2000);  // control is still ours

  GEV_DEVICE_INTERFACE gone = cameras[0];
  gone.ipAddr = 0x7f000009;
  EXPECT_EQ(GevOpenCamera(&gone, GevControlMode, &second), GEVLIB_ERROR_DEVICE_NOT_FOUND);
}

// Catches a check that is left to Aravis, which does not make it, and an exception of the wrong kind.
TEST_F(gige_camera, presents_and_checks_features_as_the_description_says) {
  const emulator one({"--picture", "still"});
  ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
  EXPECT_EQ(nodes->_GetNode("Nothing"), nullptr);
  EXPECT_EQ(integer("Width").GetInc(), 16);
  EXPECT_EQ(integer("Width").GetMax(), 1280);
  EXPECT_EQ(number("DeviceTemperature").GetAccessMode(), GenApi::RO);
  EXPECT_EQ(choice("GainSelector").GetEntryByName("Nothing"), nullptr);
  EXPECT_THROW(integer("Width").SetValue(321), GenICam::OutOfRangeException);
  EXPECT_THROW(number("ExposureTime").SetValue(1e9), GenICam::OutOfRangeException);
  EXPECT_THROW(number("ExposureTime").SetValue(std::nan("")), GenICam::InvalidArgumentException);
  EXPECT_THROW(number("DeviceTemperature").SetValue(1), GenICam::AccessException);
  EXPECT_THROW(choice("GainSelector").FromString("Nothing"), GenICam::InvalidArgumentException);
  try {
    integer("Height").SetValue(63);
    FAIL();
  } catch (const GenICam::OutOfRangeException& error) {
    EXPECT_NE(std::string(error.what()).find("Height"), std::string::npos);
  }
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

// Catches a value that is remembered where it must not be, or asked for where it need not be. All nodes look
// at the same register, one of them at a place that has to be computed.
TEST_F(gige_camera, remembers_values_by_the_rules_of_the_description) {
  const std::string fixed = "<Address>0xE000</Address>";
  std::string extra;
  const auto add = [&](const std::string& name, const std::string& rule) {
    extra += "<IntReg Name=\"" + name +
             "\"><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>" + rule +
             "<Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>\n";
  };
  extra += "<Integer Name=\"Where\"><Value>0xE000</Value></Integer>\n";
  extra += "<Boolean Name=\"Constant\"><Value>0</Value></Boolean>\n";
  add("Behind", "<pAddress>Where</pAddress>");
  add("Same", fixed);
  add("Kept", fixed);
  add("Fresh", fixed + "<Cachable>NoCache</Cachable>");
  add("Polled", fixed + "<PollingTime>200</PollingTime>");
  add("Invalidated", fixed + "<pInvalidator>ExposureTime</pInvalidator>");
  const emulator one({"--xml", description("</RegisterDescription>", extra + "</RegisterDescription>")});
  ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
  const auto values = [this] {
    std::vector<std::int64_t> all;
    for (const char* name : {"Kept", "Fresh", "Polled", "Invalidated"}) {
      all.push_back(integer(name).GetValue());
    }
    return all;
  };
  using expected = std::vector<std::int64_t>;
  integer("Behind").SetValue(1);
  EXPECT_EQ(values(), (expected{1, 1, 1, 1}));
  integer("Behind").SetValue(2);
  EXPECT_EQ(values(), (expected{2, 2, 2, 2})) << "written by way of another node";
  number("ExposureTime").SetValue(3000);
  EXPECT_EQ(values(), (expected{2, 2, 2, 2}));
  integer("Same").SetValue(3);
  EXPECT_EQ(values(), (expected{3, 3, 3, 3}));

  const wire_test::command_recorder recorder;
  integer("Same").SetValue(4);
  node<GenApi::IBoolean>("Constant").SetValue(true);  // a choice, but no command
  EXPECT_EQ(integer("Same").GetValue(), 4);
  const auto sent = recorder.take();
  EXPECT_EQ(std::count(sent.begin(), sent.end(), wire_test::command{false, 0xE000}), 1)
      << "what the camera made of a number has to be asked";
  EXPECT_EQ(integer("Kept").GetValue(), 4);
  EXPECT_TRUE(recorder.take().empty()) << "what is known is asked";
}

// Catches more than one command a frame, frames that are not the camera's, and buffers that are lost on a
// restart.
TEST_F(gige_camera, receives_frames_with_one_command_each) {
  const emulator one({"--sensor", "640x480", "--picture", "still"});
  ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
  choice("DeviceTemperatureSelector").FromString("Internal");
  choice("GainSelector").FromString("SensorAll");
  bool first = true;
  for (const std::uint64_t frames : {40U, 120U, 40U}) {
    start(100);
    number("Gain").GetValue();
    number("ExposureTime").GetValue();
    std::uint64_t before = 0;
    for (std::uint64_t at = 0; at < frames; ++at) {
      ASSERT_EQ(take(), GEVLIB_OK);
      EXPECT_EQ(frame.id, at + 1) << "of " << frames;
      EXPECT_TRUE(frame.w == 640 && frame.h == 480 && frame.d == 1 && frame.format == fmtMono8 &&
                  frame.recv_size == 640 * 480 && frame.address != nullptr);
      EXPECT_EQ(frame.timestamp, std::uint64_t{frame.timestamp_hi} << 32U | frame.timestamp_lo);
      EXPECT_TRUE(before == 0 || (frame.timestamp > before && frame.timestamp < before + 1'000'000'000));
      before = frame.timestamp;
      choice("DeviceTemperatureSelector").FromString("Internal");
      number("DeviceTemperature").GetValue();
      choice("GainSelector").FromString("SensorAll");
      number("Gain").GetValue();
      number("ExposureTime").GetValue();
    }
    takeLog();
    EXPECT_EQ(GevAbortTransfer(handle), GEVLIB_OK);
    const std::string told = takeLog();
    EXPECT_NE(told.find("incomplete:0, missing:0, refused:0, dropped:0"), std::string::npos) << told;
    // Beside those of the frames: the lock, mode, start, stop and the two values; and at first, where frames
    // are to go, and a test of the packet size.
    EXPECT_LE(numberAfter(told, "commands to GV000001 during the transfer:"), frames + (first ? 24 : 12))
        << told;
    first = false;
    EXPECT_EQ(take(10), GEVLIB_ERROR_TIME_OUT);
  }
  EXPECT_EQ(GevFreeTransfer(handle), GEVLIB_OK);
  EXPECT_EQ(GevFreeTransfer(handle), GEVLIB_ERROR_TRANSFER_NOT_ACTIVE);
}

// Catches a damaged frame that passes as a good one, an option without its effect, and a wait that sleeps on.
TEST_F(gige_camera, tells_good_frames_from_bad_and_ends_waits_at_once) {
  const emulator one({"--picture", "still", "--resend", "off"});
  ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
  one.tell("loss 0.002");
  start(50);
  int bad = 0;
  for (int at = 0; at < 40; ++at) {
    const GEV_STATUS status = take();
    EXPECT_TRUE(status == GEVLIB_OK ? frame.address != nullptr
                                    : status == GEVLIB_ERROR_FRAME_INCOMPLETE && frame.address == nullptr)
        << status;
    bad += status == GEVLIB_OK ? 0 : 1;
  }
  EXPECT_TRUE(bad > 0 && bad < 30) << bad;
  one.tell("loss 0");
  one.tell("silent on");
  while (take(100) != GEVLIB_ERROR_TIME_OUT) {
  }
  clock::time_point aborted;
  std::thread beside([&] {
    std::this_thread::sleep_for(100ms);
    aborted = clock::now();
    GevAbortTransfer(handle);
  });
  EXPECT_EQ(take(5000), GEVLIB_ERROR_ABORTED);
  EXPECT_LT(clock::now() - aborted, 20ms);
  beside.join();

  GEV_CAMERA_OPTIONS options{};
  GevGetCameraInterfaceOptions(handle, &options);
  options.heartbeat_timeout_ms = 4321;
  options.streamPktSize = 4000;
  options.streamMemoryLimitMax = 1'000'000;
  EXPECT_EQ(GevSetCameraInterfaceOptions(handle, &options), GEVLIB_OK);
  EXPECT_EQ(integer("GevSCPSPacketSize").GetValue(), 4000);
  EXPECT_EQ(GevStartTransfer(handle, UINT32_MAX), GEVLIB_ERROR_NO_MEMORY);
  options.streamNumFramesBuffered = 0;
  EXPECT_EQ(GevSetCameraInterfaceOptions(handle, &options), GEVLIB_ERROR_PARAMETER_INVALID);
  EXPECT_EQ(GevGetCameraInterfaceOptions(handle, &options), GEVLIB_OK);
  EXPECT_EQ(options.heartbeat_timeout_ms, 4321U);
}

// Catches frames with chunks, which the bundle asks for, or with numbers of 64 bits, that are not taken for
// what they are.
TEST_F(gige_camera, receives_every_form_of_frames) {
  for (const char* chunks : {"standard", "extended"}) {
    for (const char* ids : {"standard", "extended"}) {
      const emulator one({"--sensor", "64x64", "--chunks", chunks, "--ids", ids});
      ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
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

// Catches what only our own emulation does, as a camera that does not tell where its frames come from.
TEST_F(gige_camera, receives_frames_of_a_camera_of_another_make) {
  const tests::program fake(directory / "fake", {"arv-fake-gv-camera-0.8", "-i", "127.0.0.1", "-s", "FAKE1"});
  ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
  ASSERT_EQ(GevStartTransfer(handle, UINT32_MAX), GEVLIB_OK) << takeLog();
  const std::int64_t pixels = integer("Width").GetValue() * integer("Height").GetValue();
  int whole = 0;
  for (int waits = 0; whole < 5 && waits < 100; ++waits) {
    if (take() == GEVLIB_OK) {
      EXPECT_EQ(frame.recv_size, pixels);
      ++whole;
    }
  }
  EXPECT_EQ(whole, 5) << takeLog();
}

// Catches a camera that is not ours any more and that is waited for.
TEST_F(gige_camera, notices_that_control_was_taken_away) {
  const emulator one({"--picture", "still"});
  ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
  start(50);
  ASSERT_EQ(take(), GEVLIB_OK);
  choice("GevCCP").FromString("OpenAccess");
  GEV_STATUS status = GEVLIB_OK;
  for (int frames = 0; status == GEVLIB_OK && frames < 150; ++frames) {
    status = take(3000);
  }
  EXPECT_EQ(status, GEVLIB_ERROR_DEVICE_LOST);
  EXPECT_NE(takeLog().find("GV000001 is lost: control was taken away"), std::string::npos);
  EXPECT_LT(duration([&] { EXPECT_EQ(GevCloseCamera(&handle), GEVLIB_OK); }), 200ms);
}

// Catches a dead camera that is noticed by time-outs, a close that waits for it, and one that is lost for
// good.
TEST_F(gige_camera, notices_a_dead_camera_and_opens_it_again) {
  const emulator one({"--picture", "still"});
  ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
  start(50);
  ASSERT_EQ(take(), GEVLIB_OK);
  one.tell("die");
  GEV_STATUS status = GEVLIB_OK;
  EXPECT_LT(duration([&] {
              while ((status = take(3000)) == GEVLIB_OK) {
              }
            }),
            1500ms);
  EXPECT_EQ(status, GEVLIB_ERROR_DEVICE_LOST);
  EXPECT_NE(takeLog().find("GV000001 is lost"), std::string::npos);
  EXPECT_LT(duration([&] { EXPECT_THROW(number("ExposureTime").SetValue(50), GenICam::TimeoutException); }),
            50ms);
  EXPECT_LT(duration([&] { EXPECT_EQ(GevCloseCamera(&handle), GEVLIB_OK); }), 200ms);
  one.tell("back");
  ASSERT_EQ(open(), GEVLIB_OK) << takeLog();
  start(50);
  EXPECT_EQ(take(), GEVLIB_OK);
}

}  // namespace
