#include "host/check/features.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <memory>

#include "host/acquire/limits.h"
#include "host/acquire/open_camera.h"
#include "host/acquire/thread_log.h"
#include "host/config/keys.h"
#include "host/config/text.h"

namespace host {
namespace {

constexpr std::array kTypeWords = {"integer", "float", "boolean", "enumeration", "string"};

std::vector<feature_record> listed_features(const camera_library& library, const std::string& serial) {
  auto all = camera_extension(library).features(serial);
  if (!all) {
    throw library_error("this camera library can't list features");
  }
  return std::move(*all);
}

// With control, so that the access of each feature shows what can be written; without it where another
// program has it.
std::unique_ptr<open_camera> open_to_read(const camera_library& library, const std::string& serial) {
  try {
    return std::make_unique<open_camera>(library, serial);
  } catch (const camera_error&) {
    return std::make_unique<open_camera>(library, serial, GevMonitorMode);
  }
}

std::string access_text(const feature_record& feature) {
  return fmt::format("{}{}", feature.isReadable ? "r" : "-", feature.isWritable ? "w" : "-");
}

// "64 to 640 in steps of 16", "Off, Active"; empty where there is nothing to say.
std::string limits_text(const feature_record& feature) {
  if (!feature.entries.empty()) {
    return fmt::format("{}", fmt::join(feature.entries, ", "));
  }
  if (!feature.min || !feature.max) {
    return "";
  }
  const bool hasSteps = feature.increment && *feature.increment != "1";
  return fmt::format("{} to {}{}", *feature.min, *feature.max,
                     hasSteps ? fmt::format(" in steps of {}", *feature.increment) : "");
}

void print_feature(const feature_record& feature) {
  const std::string value = feature.value.value_or("-") + (feature.unit.empty() ? "" : " " + feature.unit);
  fmt::print("  {:<28} {:<12} {:<3} {:<24} {}\n", printable(feature.name), kTypeWords.at(feature.type),
             access_text(feature), printable(value), printable(limits_text(feature)));
}

void print_all(const std::vector<feature_record>& features) {
  std::string category;
  for (const feature_record& each : features) {
    if (each.category != category) {
      category = each.category;
      fmt::print("{}\n", printable(category));
    }
    print_feature(each);
  }
}

struct feature_request {
  std::string name;
  std::optional<std::string> value;
};

feature_request parse_request(const std::string& text) {
  const auto equals = text.find('=');
  return {text.substr(0, equals),
          equals == std::string::npos ? std::nullopt : std::optional(text.substr(equals + 1))};
}

// False, after a line that says why, when the camera does not take it.
bool write_feature(const open_camera& camera, const feature_request& wanted) {
  take_failures();
  if (camera.write(wanted.name.c_str(), *wanted.value)) {
    return true;
  }
  const std::string why = take_failures();
  fmt::print(stderr, "{} = {}: refused{}{}\n", printable(wanted.name), printable(*wanted.value),
             why.empty() ? "" : ": ", printable(why));
  return false;
}

bool print_named(const std::vector<feature_record>& features, const std::string& name) {
  if (const feature_record* found = find_feature(features, name)) {
    print_feature(*found);
    return true;
  }
  std::vector<std::string> names;
  std::transform(features.begin(), features.end(), std::back_inserter(names),
                 [](const auto& each) { return each.name; });
  const std::string meant = nearest(name, names);
  fmt::print(stderr, "{}: the camera has no such feature{}\n", printable(name),
             meant.empty() ? "" : fmt::format("; did you mean '{}'?", printable(meant)));
  return false;
}

}  // namespace

int show_features(const camera_library& library, const std::string& serial,
                  const std::vector<std::string>& wanted) {
  const library_session started(library);
  std::vector<feature_request> requests;
  std::transform(wanted.begin(), wanted.end(), std::back_inserter(requests), parse_request);
  const bool isWriting =
      std::any_of(requests.begin(), requests.end(), [](const auto& each) { return each.value.has_value(); });
  const auto camera =
      isWriting ? std::make_unique<open_camera>(library, serial) : open_to_read(library, serial);
  if (requests.empty()) {
    print_all(listed_features(library, serial));
    return 0;
  }
  bool isDone = true;
  for (const feature_request& each : requests) {
    const bool isWritten = !each.value || write_feature(*camera, each);
    isDone = print_named(listed_features(library, serial), each.name) && isWritten && isDone;
  }
  return isDone ? 0 : 1;
}

camera_values values_of(const std::string& serial, const std::vector<feature_record>& features) {
  camera_values values = {{"serial", {fmt::format("\"{}\"", serial), ""}}};
  const auto take = [&](const char* key, const char* name) {
    const feature_record* found = find_feature(features, name);
    if (found != nullptr && found->value) {
      values[key] = {*found->value, limits_text(*found)};
    }
  };
  take("frame_rate_hz", "AcquisitionFrameRate");
  take("offset_x", "OffsetX");
  take("offset_y", "OffsetY");
  take("width", "Width");
  take("height", "Height");
  take("exposure_us", "ExposureTime");
  const feature_record* gain = find_feature(features, "Gain");
  double factor = 0;
  if (gain != nullptr && gain->value && (factor = std::strtod(gain->value->c_str(), nullptr)) > 0) {
    const auto range = limits_of(features).gainDb;
    values["gain_db"] = {fmt::format("{:.2f}", std::max(decibels(factor), 0.0)),
                         range ? fmt::format("{:.4g} to {:.4g}", range->min, range->max) : ""};
  }
  const auto isOn = [&](const char* name) {
    const feature_record* found = find_feature(features, name);
    return found != nullptr && found->value && (*found->value == "1" || *found->value == "True");
  };
  values["rotate180"] = {isOn("ReverseX") && isOn("ReverseY") ? "true" : "false", ""};
  return values;
}

int write_config(const camera_library& library, const std::string& serial) {
  const library_session started(library);
  const auto camera = open_to_read(library, serial);
  fmt::print("{}", config_template(values_of(serial, listed_features(library, serial))));
  return 0;
}

}  // namespace host
