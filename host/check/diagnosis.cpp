#include "host/check/diagnosis.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>

#include "host/acquire/limits.h"
#include "host/acquire/open_camera.h"
#include "host/check/cameras.h"
#include "host/config/text.h"

namespace host {
namespace {

using features = std::vector<feature_record>;
using lines = std::vector<std::string>;

constexpr std::array kTypeNames = {"an integer", "a float", "a boolean", "an enumeration", "a string"};

// A feature that the bundle uses whatever is configured.
struct needed_feature {
  const char* name;
  std::optional<camera_extension_type> type;  // none: any that is written as text
  bool isWritten;
  const char* entry = nullptr;  // one that an enumeration must have
};

constexpr std::array kNeeded = {
    needed_feature{"ExposureTime", camera_extension_float, true},
    needed_feature{"AcquisitionFrameRate", camera_extension_float, true},
    needed_feature{"GainSelector", camera_extension_enumeration, true, "SensorAll"},
    needed_feature{"Gain", camera_extension_float, false},
    needed_feature{"lutMode", camera_extension_enumeration, true, "Active"},
    needed_feature{"lutType", camera_extension_enumeration, true, "GammaCorrection"},
    needed_feature{"gammaCorrection", camera_extension_float, false},
    needed_feature{"OffsetX", camera_extension_integer, true},
    needed_feature{"OffsetY", camera_extension_integer, true},
    needed_feature{"Width", camera_extension_integer, true},
    needed_feature{"Height", camera_extension_integer, true},
    needed_feature{"ReverseX", std::nullopt, true},
    needed_feature{"ReverseY", std::nullopt, true},
    needed_feature{"PixelFormat", camera_extension_enumeration, true, "Mono8"},
    needed_feature{"ChunkModeActive", camera_extension_boolean, true},
    needed_feature{"ChunkSelector", camera_extension_enumeration, true},
    needed_feature{"ChunkEnable", camera_extension_boolean, false},
    needed_feature{"autoBrightnessMode", camera_extension_enumeration, true, "Off"},
};

// With an IR output.
constexpr std::array kNeededByPins = {
    needed_feature{"LineSelector", camera_extension_enumeration, true},
    needed_feature{"outputLineSource", camera_extension_enumeration, true, "ExposureActive"},
    needed_feature{"LineInverter", camera_extension_boolean, true},
    needed_feature{"outputLinePulseDelay", camera_extension_integer, false},
    needed_feature{"outputLinePulseDuration", camera_extension_integer, false},
};

bool has_entry(const feature_record& feature, const std::string& entry) {
  return std::find(feature.entries.begin(), feature.entries.end(), entry) != feature.entries.end();
}

std::string entries_text(const feature_record& feature) {
  return printable(fmt::format("{}", fmt::join(feature.entries, ", ")));
}

// Why a needed feature does not serve; empty: it does.
std::string obstacle(const needed_feature& needed, const features& all) {
  const feature_record* found = find_feature(all, needed.name);
  if (found == nullptr) {
    return "the camera does not have it";
  }
  if (needed.type && found->type != *needed.type) {
    return fmt::format("it is {}, the driver needs {}", kTypeNames.at(found->type),
                       kTypeNames.at(*needed.type));
  }
  if (needed.isWritten && !found->isWritable) {
    return "it can't be written";
  }
  if (needed.entry != nullptr && !has_entry(*found, needed.entry)) {
    return fmt::format("it has no entry {}, but {}", needed.entry, entries_text(*found));
  }
  return "";
}

template <class Needed>
void append_obstacles(const Needed& needed, const features& all, lines& to) {
  for (const needed_feature& each : needed) {
    if (const std::string text = obstacle(each, all); !text.empty()) {
      to.push_back(fmt::format("{}: {}", each.name, text));
    }
  }
}

std::int64_t whole(const camera_config& camera, property row) {
  const auto found = std::find_if(camera.cells.begin(), camera.cells.end(),
                                  [=](const cell& each) { return each.row == row && each.col == 0; });
  return found == camera.cells.end() ? 0 : std::get<std::int64_t>(found->value);
}

std::int64_t whole(const std::optional<std::string>& text, std::int64_t otherwise) {
  std::int64_t number = otherwise;
  if (text) {
    std::from_chars(text->data(), text->data() + text->size(), number);
  }
  return number;
}

// One direction of the sensor window.
struct window_side {
  const char* offsetKey;
  const char* sizeKey;
  property offsetRow;
  property sizeRow;
  const char* offset;
  const char* size;
};

constexpr std::array kSides = {
    window_side{"offset_x", "width", property::VS_ACQ_SENSOR_X, property::VS_ACQ_SENSOR_W, "OffsetX",
                "Width"},
    window_side{"offset_y", "height", property::VS_ACQ_SENSOR_Y, property::VS_ACQ_SENSOR_H, "OffsetY",
                "Height"},
};

// A value off the camera's increment, with the values beside it.
void append_step(const char* key, std::int64_t value, const feature_record& feature, lines& to) {
  const std::int64_t min = whole(feature.min, 0);
  const std::int64_t step = whole(feature.increment, 1);
  if (step > 1 && value > min && (value - min) % step != 0) {
    const std::int64_t below = value - (value - min) % step;
    to.push_back(fmt::format("{} = {}: the camera takes steps of {}: {} or {}", key, value, step, below,
                             below + step));
  }
}

// Offset and size restrict each other: what the camera reports as the limit of the one depends on the other
// that it has now. Both together are compared with the sensor.
void append_window(const camera_config& camera, const window_side& side, const features& all, lines& to) {
  const feature_record* offset = find_feature(all, side.offset);
  const feature_record* size = find_feature(all, side.size);
  if (offset == nullptr || size == nullptr) {
    return;
  }
  const std::int64_t wantedOffset = whole(camera, side.offsetRow);
  const std::int64_t wantedSize = whole(camera, side.sizeRow);
  const std::int64_t sensor = whole(offset->value, 0) + whole(size->max, 0);
  const auto range = setting_range{static_cast<double>(whole(size->min, 0)), static_cast<double>(sensor)};
  if (const auto line = refusal(side.sizeKey, static_cast<double>(wantedSize), range)) {
    to.push_back(*line);
    return;
  }
  if (wantedOffset + wantedSize > sensor) {
    to.push_back(fmt::format("{} = {} with {} = {}: they reach to {}, the camera's sensor has {} px",
                             side.offsetKey, wantedOffset, side.sizeKey, wantedSize,
                             wantedOffset + wantedSize, sensor));
  }
  append_step(side.offsetKey, wantedOffset, *offset, to);
  append_step(side.sizeKey, wantedSize, *size, to);
}

void append_pins(const camera_config& camera, const features& all, lines& to) {
  const feature_record* selector = find_feature(all, "LineSelector");
  if (selector == nullptr) {
    return;
  }
  const auto& choices = pin_keys().front().choices;
  for (const cell& each : camera.cells) {
    const auto line = std::find_if(choices.begin(), choices.end(), [&](const choice& one) {
      return each.row == property::PINx_REF && std::get<std::int64_t>(each.value) == one.code;
    });
    if (line != choices.end() && !has_entry(*selector, line->name)) {
      to.push_back(fmt::format("line = \"{}\": the camera has {}", line->name, entries_text(*selector)));
    }
  }
}

// Who controls the camera, as far as it says so.
void append_controller(const std::string& serial, const std::vector<found_camera>& found, lines& to) {
  const found_camera* camera = find_camera(found, serial);
  if (camera != nullptr && camera->controller != 0) {
    to.push_back(
        fmt::format("  - a program on {} controls it: end that one, or wait until it lets the camera go",
                    controller_text(camera->controller)));
  }
}

// The camera's own answer; none when the library can't list features.
std::optional<features> features_of(const camera_library& library, const std::string& serial) {
  const open_camera opened(library, serial);
  opened.write("GainSelector", "SensorAll");  // whose limits are wanted
  return camera_extension(library).features(serial);
}

}  // namespace

lines misfits(const camera_config& camera, const features& all) {
  lines found;
  append_obstacles(kNeeded, all, found);
  if (camera.pins > 0) {
    append_obstacles(kNeededByPins, all, found);
  }
  const feature_record* gain = find_feature(all, "Gain");
  if (camera.initial.gainDb && gain != nullptr && !gain->isWritable) {
    found.push_back(fmt::format("gain_db = {}: the camera's Gain can't be written", *camera.initial.gainDb));
  }
  light_settings created = camera.initial;
  created.gamma.reset();  // the driver skips one that the camera does not take
  const lines refused = refused_settings(created, limits_of(all));
  found.insert(found.end(), refused.begin(), refused.end());
  const feature_record* rate = find_feature(all, "AcquisitionFrameRate");
  if (const auto range = rate == nullptr ? std::nullopt : range_of(*rate)) {
    if (const auto line = refusal("frame_rate_hz", camera.frameRateHz, *range)) {
      found.push_back(*line);
    }
  }
  for (const window_side& side : kSides) {
    append_window(camera, side, all, found);
  }
  append_pins(camera, all, found);
  return found;
}

refusal_reasons diagnose(const camera_library& library, const camera_config& camera, bool isSimulated) {
  camera_search search;
  try {
    search = search_cameras(library, isSimulated);
    if (lines missing = why_missing(camera.serial, search); !missing.empty()) {
      return {std::move(missing), false};
    }
    const auto all = features_of(library, camera.serial);
    lines found = all ? misfits(camera, *all) : lines();
    const bool isLasting = !found.empty();
    return {std::move(found), isLasting};
  } catch (const camera_error& error) {
    lines found = {error.what()};
    append_controller(camera.serial, search.found, found);
    return {std::move(found), false};
  } catch (const library_error& error) {
    return {{error.what()}, false};
  }
}

}  // namespace host
