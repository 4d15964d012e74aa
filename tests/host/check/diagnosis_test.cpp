// What does not fit between a configuration and a camera.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "host/check/diagnosis.h"
#include "tests/host/support.h"
#include "tests/program.h"

namespace {

using features = std::vector<host::feature_record>;
using text = std::optional<std::string>;

host::feature_record feature(const char* name, camera_extension_type type, text min = {}, text max = {},
                             text inc = {}, std::vector<std::string> entries = {}) {
  return {.name = name,
          .value = "0",
          .min = std::move(min),
          .max = std::move(max),
          .increment = std::move(inc),
          .unit = "",
          .category = "",
          .entries = std::move(entries),
          .type = type,
          .isReadable = true,
          .isWritable = true};
}

// A camera with all that the bundle needs.
features good_camera() {
  const auto number = [](const char* name, const char* min, const char* max) {
    return feature(name, camera_extension_float, min, max);
  };
  const auto whole = [](const char* name, const char* min, const char* max, const char* inc) {
    return feature(name, camera_extension_integer, min, max, inc);
  };
  const auto flag = [](const char* name) { return feature(name, camera_extension_boolean); };
  const auto choice = [](const char* name, std::vector<std::string> entries) {
    return feature(name, camera_extension_enumeration, {}, {}, {}, std::move(entries));
  };
  return {number("ExposureTime", "10", "2000000"),
          number("AcquisitionFrameRate", "0.1", "100"),
          choice("GainSelector", {"SensorAll"}),
          number("Gain", "1", "16"),
          choice("lutMode", {"Off", "Active"}),
          choice("lutType", {"GammaCorrection"}),
          number("gammaCorrection", "0.1", "4"),
          whole("OffsetX", "0", "256", "4"),
          whole("OffsetY", "0", "176", "4"),
          whole("Width", "64", "320", "16"),
          whole("Height", "64", "240", "4"),
          flag("ReverseX"),
          flag("ReverseY"),
          choice("PixelFormat", {"Mono8"}),
          flag("ChunkModeActive"),
          choice("ChunkSelector", {}),
          flag("ChunkEnable"),
          choice("autoBrightnessMode", {"Off"}),
          choice("LineSelector", {"Line1", "Line4"}),
          choice("outputLineSource", {"Off", "ExposureActive"}),
          flag("LineInverter"),
          whole("outputLinePulseDelay", "0", "9", "1"),
          whole("outputLinePulseDuration", "0", "9", "1")};
}

TEST(diagnosis, names_everything_that_does_not_fit_at_once) {
  const auto none = [](features&) {};
  const auto at = [](features& all, const char* name) {
    return std::find_if(all.begin(), all.end(), [=](const auto& each) { return each.name == name; });
  };
  struct {
    std::string from, to;  // of the configuration, which fits but for that
    std::function<void(features&)> change;
    std::vector<std::string> misfits;
  } const cases[] = {
      {"", "", none, {}},
      {"= 50", "= 200", none, {"frame_rate_hz = 200: the camera takes 0.1 to 100 Hz"}},
      {"gain_db = 0", "gain_db = 30", none, {"gain_db = 30: the camera takes 0 to 24.08 dB"}},
      {"width = 320", "width = 336", none, {"width = 336: the camera takes 64 to 320 px"}},
      {"width = 320", "width = 200", none, {"width = 200: the camera takes steps of 16: 192 or 208"}},
      {"width = 320",
       "width = 304\noffset_x = 20",
       none,
       {"offset_x = 20 with width = 304: they reach to 324, the camera's sensor has 320 px"}},
      {"", "[[camera.pin]]\nline = \"Line3\"", none, {"line = \"Line3\": the camera has Line1, Line4"}},
      {"", "gamma = 9.0", none, {}},  // the driver leaves it out
      {"",
       "",
       [&](features& all) { at(all, "Gain")->isWritable = false; },
       {"gain_db = 0: the camera's Gain can't be written"}},
      {"gain_db = 30", "", [&](features& all) { all.erase(at(all, "LineSelector")); }, {}},
      {"gain_db = 0",
       "gain_db = 30",
       [&](features& all) {
         all.erase(at(all, "autoBrightnessMode"));
         at(all, "Width")->type = camera_extension_float;
         at(all, "lutType")->entries = {"User\x1b"};
       },
       {"lutType: it has no entry GammaCorrection, but User\\x1b",
        "Width: it is a float, the driver needs an integer",
        "autoBrightnessMode: the camera does not have it", "gain_db = 30: the camera takes 0 to 24.08 dB"}},
  };
  for (const auto& each : cases) {
    std::string config = tests::kCamera + (each.from.empty() ? each.to : "");
    if (const auto place = config.find(each.from); !each.from.empty() && place != std::string::npos) {
      config.replace(place, each.from.size(), each.to);
    }
    const auto parsed = host::parse_config(config, "c");
    ASSERT_TRUE(parsed.errors.empty()) << parsed.errors.front();
    features camera = good_camera();
    each.change(camera);
    EXPECT_EQ(host::misfits(parsed.value.cameras.front(), camera), each.misfits) << config;
  }
}

}  // namespace
