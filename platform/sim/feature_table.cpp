#include "platform/sim/feature_table.h"

#include <algorithm>

#include "platform/picture/picture.h"
#include "platform/picture/sensor_limits.h"

namespace sim {
namespace {

using gev::value_kind;

const std::vector<gev::entry> offOrActive = {{"Off", 0}, {"Active", 1}};

// clang-format off
const std::vector<gev::entry> chunks = {
    {"OffsetX", 0}, {"OffsetY", 1}, {"Width", 2}, {"Height", 3}, {"PixelFormat", 4},
    {"Timestamp", 5}, {"ExposureTime", 6}, {"Gain", 7}, {"LineStatusAll", 8}, {"FrameID", 9}};

// The rows of one category.
struct feature_group {
  const char* category;
  std::vector<feature_row> rows;
};

std::vector<feature_group> make_groups() {
  return {
      {"Root/DeviceControl", {
      {.name = "DeviceVendorName", .kind = value_kind::string, .access = GenApi::RO, .powerUp = "Simulated Cameras"},
      {.name = "DeviceModelName", .kind = value_kind::string, .access = GenApi::RO},
      {.name = "DeviceSerialNumber", .kind = value_kind::string, .access = GenApi::RO},
      {.name = "DeviceVersion", .kind = value_kind::string, .access = GenApi::RO},
      {.name = "DeviceTemperatureSelector", .kind = value_kind::enumeration, .powerUp = 1,
       .entries = {{"Internal", 0}, {"Mainboard", 1}}},
      {.name = "DeviceTemperature", .kind = value_kind::floating, .unit = "C", .access = GenApi::RO,
       .powerUp = 0.0, .min = -40.0, .max = 125.0, .selector = "DeviceTemperatureSelector", .isMeasured = true},
      {.name = "GevTimestampTickFrequency", .unit = "Hz", .access = GenApi::RO, .powerUp = 1'000'000'000,
       .min = 0, .max = INT64_MAX},
      }},
      {"Root/AcquisitionControl", {
      {.name = "ExposureTime", .kind = value_kind::floating, .unit = "us", .powerUp = 5000.0,
       .min = 10.0, .max = 2'000'000.0},
      {.name = "AcquisitionFrameRate", .kind = value_kind::floating, .unit = "Hz", .powerUp = 30.0,
       .min = 0.1, .max = 1000.0},
      }},
      {"Root/AnalogControl", {
      {.name = "GainSelector", .kind = value_kind::enumeration, .powerUp = 0,
       .entries = {{"SensorAll", 0}, {"DigitalAll", 1}}},
      {.name = "Gain", .kind = value_kind::floating, .powerUp = 1.0, .min = 1.0, .max = 16.0,
       .selector = "GainSelector"},
      {.name = "lutMode", .kind = value_kind::enumeration, .powerUp = 1, .entries = offOrActive},
      {.name = "lutType", .kind = value_kind::enumeration, .powerUp = 1,
       .entries = {{"UserDefined1", 0}, {"GammaCorrection", 1}}},
      {.name = "gammaCorrection", .kind = value_kind::floating, .powerUp = 1.0, .min = 0.1, .max = 4.0},
      // Can be switched, but does not change exposure or gain.
      {.name = "autoBrightnessMode", .kind = value_kind::enumeration, .powerUp = 0, .entries = offOrActive},
      }},
      {"Root/ChunkDataControl", {
      {.name = "ChunkModeActive", .kind = value_kind::boolean, .powerUp = 0},
      {.name = "ChunkSelector", .kind = value_kind::enumeration, .powerUp = 0, .entries = chunks},
      {.name = "ChunkEnable", .kind = value_kind::boolean, .powerUp = 0, .selector = "ChunkSelector"},
      }},
      // The description gives the limits: those of the sensor.
      {"Root/ImageFormatControl", {
      {.name = "OffsetX", .unit = "px", .powerUp = 0, .min = 0, .inc = 4, .fitsWith = "Width", .isLocked = true},
      {.name = "OffsetY", .unit = "px", .powerUp = 0, .min = 0, .inc = 4, .fitsWith = "Height", .isLocked = true},
      {.name = "Width", .unit = "px", .inc = std::int64_t{picture::widthIncrement}, .fitsWith = "OffsetX", .isLocked = true},
      {.name = "Height", .unit = "px", .inc = std::int64_t{picture::heightIncrement}, .fitsWith = "OffsetY", .isLocked = true},
      {.name = "ReverseX", .kind = value_kind::boolean, .powerUp = 0},
      {.name = "ReverseY", .kind = value_kind::boolean, .powerUp = 0},
      {.name = "PixelFormat", .kind = value_kind::enumeration, .powerUp = std::int64_t{picture::pixelFormatMono8},
       .entries = {{"Mono8", picture::pixelFormatMono8}, {"Mono10", picture::pixelFormatMono10}}, .isLocked = true},
      }},
      // Infrared lights hang on Line3 and Line4.
      {"Root/DigitalIOControl", {
      {.name = "LineSelector", .kind = value_kind::enumeration, .powerUp = 0,
       .entries = {{"Line1", 0}, {"Line2", 1}, {"Line3", 2}, {"Line4", 3}}},
      {.name = "outputLineSource", .kind = value_kind::enumeration, .powerUp = 0,
       .entries = {{"Off", 0}, {"ExposureActive", 1}, {"ReadoutActive", 2}}, .selector = "LineSelector"},
      {.name = "LineInverter", .kind = value_kind::boolean, .powerUp = 0, .selector = "LineSelector"},
      {.name = "outputLinePulseDelay", .unit = "us", .powerUp = 0, .min = 0, .max = 16'777'215,
       .selector = "LineSelector"},
      {.name = "outputLinePulseDuration", .unit = "us", .powerUp = 0, .min = 0, .max = 16'777'215,
       .selector = "LineSelector"},
      }},
  };
}
// clang-format on

std::vector<feature_row> make_table() {
  std::vector<feature_row> table;
  for (feature_group& group : make_groups()) {
    for (feature_row& row : group.rows) {
      row.category = group.category;
      table.push_back(std::move(row));
    }
  }
  return table;
}

}  // namespace

const std::vector<feature_row>& feature_table() {
  static const std::vector<feature_row> table = make_table();
  return table;
}

const feature_row* find_row(const std::string& name) {
  const auto& table = feature_table();
  const auto found =
      std::find_if(table.begin(), table.end(), [&](const auto& row) { return row.name == name; });
  return found == table.end() ? nullptr : &*found;
}

}  // namespace sim
