// Simulated cameras behave like real ones, and misbehave as a script of faults says.
#include <camera_extension.h>

#include <array>
#include <chrono>
#include <map>
#include <thread>

#include "tests/src/bundle_fixture.h"

namespace test {
namespace {

using ids = std::vector<std::uint64_t>;

class sim_camera : public bundle_test {
 protected:
  void open(const std::string& description, bool isClockDriven = true) {
    cameras("serial=CAM1 sensor=640x480 " + description, isClockDriven);
    openCamera();
  }
  void write(const char* name, const char* text) {
    dynamic_cast<GenApi::IValue&>(*nodeMap->_GetNode(name)).FromString(text, true);
  }
  /// The ids of the next frames, 0 for a wait without one.
  ids take(std::size_t count) {
    ids found;
    for (GEV_BUFFER_OBJECT* frame = nullptr; found.size() < count;) {
      status = GevWaitForNextFrame(handle, &frame, 1000);
      found.push_back(frame == nullptr ? 0 : frame->id);
      if (frame != nullptr) {
        picture.assign(frame->address, frame->address + std::size_t{frame->w} * frame->h);
        EXPECT_EQ(GevReleaseFrame(handle, frame), 0);
      }
    }
    return found;
  }
  void take_picture() {
    EXPECT_EQ(GevStartTransfer(handle, 1), 0);
    EXPECT_EQ(take(1), ids{1});
    EXPECT_EQ(GevAbortTransfer(handle), 0);
    EXPECT_EQ(GevFreeTransfer(handle), 0);
  }
  /// The mean grey of a new picture of the whole sensor, between two parts of its width.
  double brightness(double from = 0, double to = 1) {
    take_picture();
    double sum = 0;
    double count = 0;
    for (std::size_t at = 0; at < picture.size(); ++at) {
      const double across = static_cast<double>(at % 640) / 640;
      if (across >= from && across < to) {
        sum += picture[at];
        ++count;
      }
    }
    return sum / count;
  }

  std::vector<std::uint8_t> picture;
  GEV_STATUS status = 0;  // of the last wait
};

TEST_F(sim_camera, shows_every_setting_in_the_picture) {
  open("noise=off");
  const double normal = brightness();
  EXPECT_NEAR(normal, 110, 50);
  const std::vector<std::uint8_t> upright = picture;
  const struct {
    const char *name, *value, *normal;
    double brighter;  // at least, times
  } settings[] = {
      {"ExposureTime", "10000", "5000", 1.4}, {"Gain", "2", "1", 1.4}, {"gammaCorrection", "2", "1", 1.2}};
  for (const auto& each : settings) {
    write(each.name, each.value);
    EXPECT_GT(brightness(), normal * each.brighter) << each.name;
    write(each.name, each.normal);
  }
  write("gammaCorrection", "2");
  write("lutMode", "Off");
  EXPECT_NEAR(brightness(), normal, 3) << "gamma without the look-up table";
  write("ReverseX", "True");
  write("ReverseY", "True");
  sim::drive_clock(1'000'000);  // the belt is where it was in the first picture
  take_picture();
  EXPECT_NE(picture, upright);
  write("Width", "320");
  write("OffsetX", "64");
  take_picture();
  EXPECT_EQ(picture.size(), 320U * 480);
}

TEST_F(sim_camera, shows_the_pulse_of_each_infrared_light_on_its_side) {
  open("noise=off");
  for (const auto& [line, from] : std::map<const char*, double>{{"Line3", 0.0}, {"Line4", 0.7}}) {
    const double dark = brightness(from, from + 0.3);
    write("LineSelector", line);
    write("outputLinePulseDuration", "5000");
    write("outputLineSource", "ExposureActive");
    const double lit = brightness(from, from + 0.3);
    EXPECT_GT(lit, dark + 15) << line;
    write("outputLinePulseDuration", "1000");
    EXPECT_LT(brightness(from, from + 0.3), lit - 10) << line;
    write("outputLineSource", "Off");
    EXPECT_NEAR(brightness(from, from + 0.3), dark, 6) << line;
  }
}

TEST_F(sim_camera, keeps_features_as_a_camera_does) {
  open("");
  write("LineSelector", "Line3");
  write("outputLinePulseDuration", "300");
  write("LineSelector", "Line4");
  write("outputLinePulseDuration", "400");
  EXPECT_EQ(feature("outputLinePulseDuration", "Line3"), "300") << "a value for each line";
  const std::pair<const char*, const char*> refused[] = {
      {"OffsetX", "64"},    {"Width", "656"}, {"Width", "321"},    {"Gain", "17"},
      {"Gain", "nan"},      {"Gain", "loud"}, {"lutMode", "Half"}, {"DeviceTemperature", "20"},
      {"ChunkEnable", "2"}, {"Width", ""}};
  for (const auto& [name, value] : refused) {
    const std::string text = raised([&, n = name, v = value] { write(n, v); });
    EXPECT_NE(text.find("Exception: " + std::string(name)), std::string::npos)
        << name << "=" << value << ": " << text;
  }
  EXPECT_EQ(GevStartTransfer(handle, 5), 0);
  EXPECT_NE(raised([&] { write("Width", "320"); }).find("AccessException: Width"), std::string::npos);
  write("ExposureTime", "1000");
  closeCamera();
  EXPECT_EQ(feature("ExposureTime"), "5000") << "power-up settings after closing";
}

TEST_F(sim_camera, drops_frames_when_the_consumer_is_late) {
  open("fps=100");
  ASSERT_EQ(GevStartTransfer(handle, 0xFFFFFFFF), 0);
  EXPECT_EQ(take(1), ids{1});
  sim::advance_clock(95'000);  // nine frames, for four buffers
  const std::uint64_t start = sim::clock_us();
  EXPECT_EQ(take(4), (ids{2, 3, 4, 5}));
  EXPECT_EQ(sim::clock_us(), start);
  EXPECT_EQ(sim::frames_lost("CAM1"), 5U);
  EXPECT_EQ(take(1), ids{11});
  EXPECT_EQ(sim::clock_us() - start, 5'000U);
  EXPECT_EQ(GevAbortTransfer(handle), 0);
  ASSERT_EQ(GevStartTransfer(handle, 2), 0);
  EXPECT_EQ(take(3), (ids{1, 2, 0})) << "no more than it was started for";
}

TEST_F(sim_camera, follows_a_script_of_faults) {
  open("fault=frame:_lost_@2_x1 fault=frame:_bad_-16_@4_x1 fault=frame:_silent_@6");
  ASSERT_EQ(GevStartTransfer(handle, 0xFFFFFFFF), 0);
  EXPECT_EQ(take(3), (ids{1, 3, 4}));
  EXPECT_EQ(status, GEVLIB_ERROR_FRAME_INCOMPLETE);
  EXPECT_EQ(take(1), ids{5});
  const std::uint64_t before = sim::clock_us();
  EXPECT_EQ(take(1), ids{0});
  EXPECT_EQ(status, GEVLIB_ERROR_TIME_OUT);
  EXPECT_EQ(sim::clock_us() - before, 1'000'000U);
}

// Catches a host that hangs with its camera. Time is real here.
TEST_F(sim_camera, abort_and_cancel_end_what_waits_for_the_camera) {
  open("fault=frame:_silent fault=write_Gain:_slow_60000000", false);
  GEV_BUFFER_OBJECT* frame = nullptr;
  const auto during = [](auto wait, auto end) {
    std::thread ending([=] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      EXPECT_EQ(end(), 0);
    });
    wait();
    ending.join();
  };
  const auto cancel = [] { return camera_extension_cancel("CAM1"); };
  const auto wait = [&] { status = GevWaitForNextFrame(handle, &frame, 60'000); };
  ASSERT_EQ(GevStartTransfer(handle, 9), 0);
  during(wait, [this] { return GevAbortTransfer(handle); });
  EXPECT_EQ(status, GEVLIB_ERROR_ABORTED);
  during([&] { EXPECT_NE(raised([&] { write("Gain", "2"); }).find("TimeoutException"), std::string::npos); },
         cancel);
  closeCamera();
  openCamera();
  ASSERT_EQ(GevStartTransfer(handle, 9), 0) << "a camera that is opened again is not cancelled";
  during(wait, cancel);
  EXPECT_EQ(status, GEVLIB_ERROR_DEVICE_LOST);
  EXPECT_EQ(GevStartTransfer(handle, 9), GEVLIB_ERROR_DEVICE_LOST);
}

TEST_F(sim_camera, refuses_calls_without_an_open_camera_or_at_the_wrong_time) {
  open("");
  GEV_CAMERA_HANDLE stale = handle;
  closeCamera();
  GEV_CAMERA_OPTIONS options{};
  GEV_BUFFER_OBJECT* frame = nullptr;
  for (GEV_CAMERA_HANDLE wrong :
       {static_cast<GEV_CAMERA_HANDLE>(nullptr), stale, static_cast<GEV_CAMERA_HANDLE>(&options)}) {
    EXPECT_EQ(GevStartTransfer(wrong, 1), GEVLIB_ERROR_INVALID_HANDLE);
    EXPECT_EQ(GevWaitForNextFrame(wrong, &frame, 1), GEVLIB_ERROR_INVALID_HANDLE);
    EXPECT_EQ(GevGetFeatureNodeMap(wrong), nullptr);
    EXPECT_EQ(GevCloseCamera(&wrong), GEVLIB_ERROR_INVALID_HANDLE);
  }
  openCamera();
  GEV_DEVICE_INTERFACE record{};
  int count = 0;
  GevGetCameraList(&record, 1, &count);
  EXPECT_EQ(GevOpenCamera(&record, GevControlMode, &stale), GEVLIB_ERROR_ACCESS_DENIED);
  EXPECT_EQ(GevReleaseFrame(handle, nullptr), GEVLIB_ERROR_PARAMETER_NULL);
  EXPECT_EQ(GevAbortTransfer(handle), GEVLIB_ERROR_TRANSFER_NOT_ACTIVE);
  EXPECT_EQ(GevStartTransfer(handle, 5), 0);
  EXPECT_EQ(GevStartTransfer(handle, 5), GEVLIB_ERROR_TRANSFER_ACTIVE);
}

TEST_F(sim_camera, passes_features_by_name_as_numbers_and_as_text) {
  open("");
  int type = 0;
  float gain = 0;
  std::uint32_t format = 7;
  std::array<char, 64> text{"Off"};
  EXPECT_EQ(GevGetFeatureValue(handle, "Gain", &type, sizeof gain, &gain), 0);
  EXPECT_EQ(type, 4);
  EXPECT_EQ(gain, 1.0F);
  EXPECT_EQ(GevGetFeatureValue(handle, "Volume", &type, sizeof gain, &gain), GEVLIB_ERROR_FEATURE_NOT_FOUND);
  EXPECT_EQ(GevSetFeatureValue(handle, "PixelFormat", sizeof format, &format), GEVLIB_ERROR_FEATURE_REFUSED);
  EXPECT_EQ(GevSetFeatureValue(handle, "Gain", text.size(), text.data()), GEVLIB_ERROR_FEATURE_REFUSED);
  EXPECT_EQ(GevSetFeatureValue(handle, "lutMode", text.size(), text.data()), 0);
  text = {};
  EXPECT_EQ(GevGetFeatureValue(handle, "lutMode", &type, text.size(), text.data()), 0);
  EXPECT_STREQ(text.data(), "Off");
}

TEST_F(sim_camera, the_extension_counts_lost_frames_by_cause_and_tells_the_frame_in_hand) {
  openCamera();
  camera_extension_health_record record{};
  const auto health = [&] {
    record.size = sizeof record;
    EXPECT_EQ(camera_extension_health("CAM1", &record), 0);
  };
  sim::inject("frame: lost @2 x1; frame: bad -16 @3 x1");
  ASSERT_EQ(GevStartTransfer(handle, 20), 0);
  GEV_BUFFER_OBJECT* frame = nullptr;
  ASSERT_EQ(GevWaitForNextFrame(handle, &frame, 1000), 0);
  health();
  EXPECT_EQ(record.frame_id, frame->id);
  EXPECT_EQ(record.frame_time_ns, frame->timestamp);
  sim::advance_clock(10'000'000);  // the consumer sleeps
  health();
  EXPECT_EQ((std::array{record.frames_whole, record.frames_missing, record.frames_incomplete,
                        record.frames_dropped}),
            (std::array<std::uint64_t, 4>{record.buffers - 1U, 1, 1, 19U - record.buffers}));
  struct {
    std::uint32_t size = sizeof(std::uint32_t) * 2;
    std::uint32_t transport = 9;
    std::uint64_t beyond = 7;
  } old;  // a record of an older host
  EXPECT_EQ(camera_extension_health("CAM1", reinterpret_cast<camera_extension_health_record*>(&old)), 0);
  EXPECT_EQ(old.transport, std::uint32_t{camera_extension_simulated});
  EXPECT_EQ(old.beyond, 7U) << "written beyond its size";
}

TEST_F(sim_camera, names_what_is_wrong_in_a_description_and_adds_nothing_of_it) {
  const std::pair<const char*, const char*> cases[] = {{"serial=A widht=5", "widht"},
                                                       {"serial=A sensor=640", "640"},
                                                       {"serial=A fps=fast", "fast"},
                                                       {"serial=A missing=Gian", "Gian"},
                                                       {"serial", "serial"},
                                                       {"serial=A fault=frame:_bored", "bored"},
                                                       {"serial=A scene=/nowhere.pgm", "/nowhere.pgm"}};
  for (const auto& [text, word] : cases) {
    const std::string message = raised([t = text] { sim::add_cameras(t); });
    EXPECT_NE(message.find(word), std::string::npos) << text << ": " << message;
  }
  int count = 0;
  EXPECT_EQ(GevGetCameraList(nullptr, 0, &count), 0);
  EXPECT_EQ(count, 1);
}

}  // namespace
}  // namespace test
