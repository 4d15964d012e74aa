// The simulated cameras: what a host takes for real ones, and what tests rely on.
#include <camera_extension.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <numeric>
#include <optional>
#include <thread>

#include "tests/src/bundle_fixture.h"

namespace test {
namespace {

class sim_camera : public bundle_test {
 protected:
  void open(const std::string& description) {
    cameras("serial=CAM1 sensor=640x480 " + description);
    openCamera();
  }
  void options(std::uint32_t buffers) {
    GEV_CAMERA_OPTIONS options{};
    EXPECT_EQ(GevGetCameraInterfaceOptions(handle, &options), 0);
    options.streamNumFramesBuffered = buffers;
    EXPECT_EQ(GevSetCameraInterfaceOptions(handle, &options), 0);
  }
  void write(const char* name, const char* text) {
    dynamic_cast<GenApi::IValue&>(*nodeMap->_GetNode(name)).FromString(text, true);
  }
  /// The next frame's number; 0 when none came.
  std::uint64_t take() {
    GEV_BUFFER_OBJECT* frame = nullptr;
    status = GevWaitForNextFrame(handle, &frame, 1000);
    if (frame == nullptr) {
      return 0;
    }
    picture.assign(frame->address, frame->address + std::size_t{frame->w} * frame->h);
    const std::uint64_t id = frame->id;
    EXPECT_EQ(GevReleaseFrame(handle, frame), 0);
    return id;
  }
  /// Mean brightness of a part of a new picture, in shares of its width.
  double brightness(double from = 0, double to = 1) {
    EXPECT_EQ(GevStartTransfer(handle, 1), 0);
    EXPECT_GT(take(), 0U);
    EXPECT_EQ(GevAbortTransfer(handle) == 0 && GevFreeTransfer(handle) == 0, true);
    const auto width = static_cast<std::size_t>(std::stoul(feature("Width")));
    double sum = 0;
    std::size_t count = 0;
    for (std::size_t i = 0; i < picture.size(); ++i) {
      const double at = static_cast<double>(i % width) / static_cast<double>(width);
      sum += at >= from && at < to ? picture[i] : 0;
      count += at >= from && at < to ? 1 : 0;
    }
    return sum / static_cast<double>(count);
  }

  std::vector<std::uint8_t> picture;
  GEV_STATUS status = 0;
};

// Catches a setting that does not show, or shows in the wrong direction or place.
TEST_F(sim_camera, shows_every_setting_in_the_picture) {
  open("noise=off");
  const double normal = brightness();
  EXPECT_TRUE(normal > 60 && normal < 160) << normal;
  const std::vector<std::uint8_t> upright = picture;
  write("ExposureTime", "10000");
  EXPECT_GT(brightness(), normal * 1.4);
  write("ExposureTime", "5000");
  write("GainSelector", "SensorAll");
  write("Gain", "2");
  EXPECT_GT(brightness(), normal * 1.4);
  write("Gain", "1");
  write("gammaCorrection", "2");
  EXPECT_GT(brightness(), normal + 20);
  write("lutMode", "Off");
  EXPECT_NEAR(brightness(), normal, 3);
  for (const char* reverse : {"ReverseX", "ReverseY"}) {
    write(reverse, "True");
  }
  sim::drive_clock(1'000'000);  // the same moment again
  brightness();
  EXPECT_NE(picture, upright);
  for (const char* reverse : {"ReverseX", "ReverseY"}) {
    write(reverse, "False");
  }
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
  write("Width", "320");
  write("OffsetX", "64");
  brightness();
  EXPECT_EQ(picture.size(), 320U * 480);
}

// Catches values that selectors share, and limits that do not hold.
TEST_F(sim_camera, keeps_features_as_a_camera_does) {
  open("");
  for (const char* line : {"Line3", "Line4"}) {
    write("LineSelector", line);
    write("outputLinePulseDuration", line[4] == '3' ? "300" : "400");
  }
  EXPECT_EQ(feature("outputLinePulseDuration", "Line3") + feature("outputLinePulseDuration", "Line4"),
            "300400");
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
  EXPECT_EQ(GevStartTransfer(handle, 5), GEVLIB_ERROR_TRANSFER_ACTIVE);
  GEV_CAMERA_HANDLE second = nullptr;
  GEV_DEVICE_INTERFACE record{};
  int count = 0;
  GevGetCameraList(&record, 1, &count);
  EXPECT_EQ(GevOpenCamera(&record, GevControlMode, &second), GEVLIB_ERROR_ACCESS_DENIED);
  closeCamera();
  EXPECT_EQ(feature("ExposureTime"), "5000");  // back to the power-up settings
}

// Catches frames that are kept beyond the ring, come early, late, or after the end.
TEST_F(sim_camera, drops_frames_when_the_consumer_is_late) {
  open("fps=100");
  options(4);
  ASSERT_EQ(GevStartTransfer(handle, 0xFFFFFFFF), 0);
  EXPECT_EQ(take(), 1U);
  sim::advance_clock(95'000);  // nine frames, for four buffers
  const std::uint64_t start = sim::clock_us();
  for (std::uint64_t id = 2; id <= 5; ++id) {
    EXPECT_EQ(take(), id);
  }
  EXPECT_EQ(sim::clock_us(), start);
  EXPECT_EQ(sim::frames_lost("CAM1"), 5U);
  EXPECT_EQ(take(), 11U);
  EXPECT_EQ(sim::clock_us() - start, 5'000U);
  EXPECT_EQ(GevAbortTransfer(handle), 0);
  EXPECT_EQ(GevAbortTransfer(handle), GEVLIB_ERROR_TRANSFER_NOT_ACTIVE);
  ASSERT_EQ(GevStartTransfer(handle, 2), 0);  // again, for two
  EXPECT_TRUE(take() > 0 && take() > 0 && take() == 0 && status == GEVLIB_ERROR_TIME_OUT);
  EXPECT_TRUE(GevAbortTransfer(handle) == 0 && GevFreeTransfer(handle) == 0);
}

// Catches a fault that hits another frame than it was scripted for, or does something else.
TEST_F(sim_camera, follows_a_script_of_faults) {
  open("fault=frame:_lost_@2_x1 fault=frame:_bad_-16_@4_x1 fault=frame:_silent_@6");
  ASSERT_EQ(GevStartTransfer(handle, 0xFFFFFFFF), 0);
  EXPECT_TRUE(take() == 1 && take() == 3 && take() == 4 && status == GEVLIB_ERROR_FRAME_INCOMPLETE);
  EXPECT_TRUE(take() == 5 && status == 0);
  const std::uint64_t before = sim::clock_us();
  EXPECT_TRUE(take() == 0 && status == GEVLIB_ERROR_TIME_OUT && sim::clock_us() - before == 1'000'000);
}

// Catches an abort that leaves a waiter waiting, in real time.
TEST_F(sim_camera, wakes_a_waiting_thread) {
  cameras("serial=CAM1 fault=frame:_silent", false);
  openCamera();
  ASSERT_EQ(GevStartTransfer(handle, 0xFFFFFFFF), 0);
  const auto before = std::chrono::steady_clock::now();
  std::thread aborting([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    GevAbortTransfer(handle);
  });
  GEV_BUFFER_OBJECT* frame = nullptr;
  EXPECT_EQ(GevWaitForNextFrame(handle, &frame, 60'000), GEVLIB_ERROR_ABORTED);
  aborting.join();
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(10));
}

// Catches a careless call that crashes, or is answered with the wrong status.
TEST_F(sim_camera, answers_careless_calls) {
  open("");
  GEV_CAMERA_HANDLE stale = handle;
  EXPECT_EQ(GevCloseCamera(&handle), 0);
  GEV_CAMERA_HANDLE none = nullptr;
  GEV_CAMERA_OPTIONS options{};
  GEV_BUFFER_OBJECT* frame = nullptr;
  for (GEV_CAMERA_HANDLE wrong : {none, stale, static_cast<GEV_CAMERA_HANDLE>(&options)}) {
    EXPECT_EQ(GevStartTransfer(wrong, 1), GEVLIB_ERROR_INVALID_HANDLE);
    EXPECT_EQ(GevGetCameraInterfaceOptions(wrong, &options), GEVLIB_ERROR_INVALID_HANDLE);
    EXPECT_EQ(GevWaitForNextFrame(wrong, &frame, 1), GEVLIB_ERROR_INVALID_HANDLE);
    EXPECT_EQ(GevGetFeatureNodeMap(wrong), nullptr);
    EXPECT_EQ(GevCloseCamera(&wrong), GEVLIB_ERROR_INVALID_HANDLE);
  }
  openCamera();
  int type = 0;
  float factor = 0;
  std::uint32_t format = 7;
  EXPECT_EQ(GevGetFeatureValue(handle, "Gain", &type, sizeof factor, &factor), 0);
  EXPECT_TRUE(type == 4 && factor == 1.0F);
  EXPECT_EQ(GevGetFeatureValue(handle, "Volume", &type, sizeof factor, &factor),
            GEVLIB_ERROR_FEATURE_NOT_FOUND);
  EXPECT_EQ(GevSetFeatureValue(handle, "PixelFormat", sizeof format, &format), GEVLIB_ERROR_FEATURE_REFUSED);
  std::array<char, 64> text{"Off"};
  EXPECT_EQ(GevSetFeatureValue(handle, "lutMode", text.size(), text.data()), 0);
  EXPECT_EQ(GevSetFeatureValue(handle, "Gain", text.size(), text.data()), GEVLIB_ERROR_FEATURE_REFUSED);
  EXPECT_EQ(GevGetFeatureValue(handle, "lutMode", &type, text.size(), text.data()), 0);
  EXPECT_EQ(type, 6);
  EXPECT_STREQ(text.data(), "Off");
  EXPECT_EQ(GevReleaseFrame(handle, nullptr), GEVLIB_ERROR_PARAMETER_NULL);
}

// Catches a feature record without what a person or a program needs to set it.
TEST_F(sim_camera, the_extension_lists_every_feature_with_its_limits_in_the_order_of_the_description) {
  using text = std::optional<std::string>;
  struct feature {
    std::string name, category;
    text value, min, max, increment;
    std::vector<std::string> entries;
    bool isWritable;
  };
  std::vector<feature> found;
  const auto collect = [](void* to, const camera_extension_feature* each) {
    const auto text_of = [](const char* from) { return from == nullptr ? text() : text(from); };
    static_cast<std::vector<feature>*>(to)->push_back({each->name,
                                                       each->category,
                                                       text_of(each->value),
                                                       text_of(each->min),
                                                       text_of(each->max),
                                                       text_of(each->increment),
                                                       {each->entries, each->entries + each->entry_count},
                                                       each->writable == 1});
    return 0;
  };
  EXPECT_EQ(camera_extension_features("CAM1", collect, &found), -ENODEV) << "not open";
  openCamera();
  ASSERT_EQ(camera_extension_features("CAM1", collect, &found), 0);
  EXPECT_EQ(found.front().name, "DeviceVendorName");
  const auto named = [&](const char* name) {
    return *std::find_if(found.begin(), found.end(), [=](const feature& each) { return each.name == name; });
  };
  const feature width = named("Width");
  EXPECT_EQ((std::array{width.value, width.min, width.max, width.increment}),
            (std::array{text("640"), text("64"), text("640"), text("16")}));
  EXPECT_EQ(width.category, "Root/ImageFormatControl");
  EXPECT_TRUE(width.isWritable && !named("DeviceTemperature").isWritable);
  const feature lut = named("lutMode");
  EXPECT_TRUE(lut.value == "Active" && !lut.min &&
              lut.entries == std::vector<std::string>({"Off", "Active"}));
}

// Catches a loss that is put down to the wrong cause, and a record that is another frame's.
TEST_F(sim_camera, the_extension_counts_lost_frames_by_cause_and_tells_the_frame_in_hand) {
  openCamera();
  camera_extension_health_record record{};
  const auto health = [&] {
    record.size = sizeof record;
    EXPECT_EQ(camera_extension_health("CAM1", &record), 0);
    return record;
  };
  sim::inject("frame: lost @2 x1; frame: bad -16 @3 x1");
  ASSERT_EQ(GevStartTransfer(handle, 20), 0);
  GEV_BUFFER_OBJECT* frame = nullptr;
  ASSERT_EQ(GevWaitForNextFrame(handle, &frame, 1000), 0);
  EXPECT_EQ(health().frame_id, frame->id);
  EXPECT_EQ(record.frame_time_ns, frame->timestamp);
  sim::advance_clock(10'000'000);  // the consumer sleeps
  health();
  EXPECT_EQ((std::array{record.frames_whole, record.frames_missing, record.frames_incomplete}),
            (std::array<std::uint64_t, 3>{record.buffers - 1U, 1, 1}));
  EXPECT_EQ(record.frames_whole + record.frames_missing + record.frames_incomplete + record.frames_dropped,
            20U);
  struct {
    std::uint32_t size = sizeof(std::uint32_t) * 2;
    std::uint32_t transport = 9;
    std::uint64_t beyond = 7;
  } old;
  EXPECT_EQ(camera_extension_health("CAM1", reinterpret_cast<camera_extension_health_record*>(&old)), 0);
  EXPECT_TRUE(old.transport == camera_extension_simulated && old.beyond == 7) << "written beyond its size";
}

// Catches a program that hangs with its camera.
TEST_F(sim_camera, cancelling_ends_whatever_waits_for_the_camera) {
  cameras("serial=CAM1 fault=frame:_silent fault=write_Gain:_slow_60000000", false);
  openCamera();
  const auto later = [] {
    return std::thread([] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      EXPECT_EQ(camera_extension_cancel("CAM1"), 0);
    });
  };
  auto* const gain = dynamic_cast<GenApi::IFloat*>(nodeMap->_GetNode("Gain"));
  std::thread canceller = later();
  EXPECT_THROW(gain->SetValue(2), GenICam::TimeoutException);
  canceller.join();
  closeCamera();
  openCamera();
  ASSERT_EQ(GevStartTransfer(handle, 9), 0) << "opening makes good";
  GEV_BUFFER_OBJECT* frame = nullptr;
  canceller = later();
  EXPECT_EQ(GevWaitForNextFrame(handle, &frame, 60'000), GEVLIB_ERROR_DEVICE_LOST);
  canceller.join();
  EXPECT_EQ(GevStartTransfer(handle, 9), GEVLIB_ERROR_DEVICE_LOST);
  EXPECT_EQ(camera_extension_cancel("NONE"), -ENODEV);
}

// Catches a camera that is out of the bundle's reach because others answer before it.
TEST_F(sim_camera, preferred_cameras_come_first) {
  cameras("serial=A; serial=B; serial=C");
  const auto listed = [](const std::vector<const char*>& serials) {
    EXPECT_EQ(camera_extension_prefer(serials.data(), serials.size()), 0);
    std::array<GEV_DEVICE_INTERFACE, 3> found{};
    int count = 0;
    GevGetCameraList(found.data(), 3, &count);
    return std::string(found[0].serial) + found[1].serial + found[2].serial;
  };
  EXPECT_EQ(listed({"C", "X", "B"}), "CBA");
  EXPECT_EQ(listed({}), "ABC");
}

// Catches a mistake in a description that is taken, or told without the word that is wrong.
TEST_F(sim_camera, names_what_is_wrong_in_a_description) {
  const std::pair<const char*, const char*> cases[] = {{"serial=A widht=5", "widht"},
                                                       {"serial=A sensor=640", "640"},
                                                       {"serial=A fps=fast", "fast"},
                                                       {"serial=A noise=perhaps", "perhaps"},
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
  EXPECT_EQ(count, 1);  // nothing of them was added
}

}  // namespace
}  // namespace test
