#include "platform/sim/camera_description.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>

#include "platform/gev/value.h"
#include "platform/picture/sensor_limits.h"
#include "platform/sim/feature_table.h"
#include "platform/sim/parsing.h"

namespace sim {
namespace {

constexpr std::size_t longestText = 64;  // a text of GEV_DEVICE_INTERFACE, without its end

std::string identity(const std::string& key, const std::string& text) {
  if (text.size() > longestText) {
    throw std::invalid_argument(key + " '" + text + "' is longer than " + std::to_string(longestText) +
                                " characters");
  }
  return text;
}

std::uint32_t address(const std::string& key, const std::string& text) {
  const auto parts = split(text, ".");
  if (parts.size() != 4) {
    throw std::invalid_argument(key + " '" + text + "' is not of the form 192.168.0.1");
  }
  std::uint32_t whole = 0;
  for (const std::string& part : parts) {
    whole = whole << 8 | static_cast<std::uint32_t>(to_int(key, part, 0, 255));
  }
  return whole;
}

std::int64_t sensor_side(const std::string& key, const std::string& text, std::int64_t increment) {
  const std::int64_t side = to_int(key, text, increment, picture::largestSensorSide);
  if (side % increment != 0) {
    throw std::invalid_argument(key + " '" + text + "' is not a multiple of " + std::to_string(increment));
  }
  return side;
}

void sensor(camera_description& camera, const std::string& key, const std::string& text) {
  const auto sides = split(text, "x");
  if (sides.size() != 2) {
    throw std::invalid_argument(key + " '" + text + "' is not of the form 1280x1024");
  }
  camera.width = sensor_side(key + " width", sides[0], picture::widthIncrement);
  camera.height = sensor_side(key + " height", sides[1], picture::heightIncrement);
}

double power_up(const std::string& key, const std::string& text, const std::string& feature) {
  const feature_row& row = *find_row(feature);
  return to_double(key, text, gev::to_number(row.min), gev::to_number(row.max));
}

const feature_row& known_feature(const std::string& key, const std::string& name) {
  const feature_row* row = find_row(name);
  if (row == nullptr) {
    throw std::invalid_argument(key + ": unknown feature '" + name + "', known features are " +
                                listed(feature_table(), [](const feature_row& each) { return each.name; }));
  }
  return *row;
}

std::vector<std::string> features(const std::string& key, const std::string& text) {
  auto names = split(text, ",");
  for (const std::string& name : names) {
    known_feature(key, name);
  }
  return names;
}

std::pair<std::string, std::string> entry_of(const std::string& key, const std::string& text) {
  const auto dot = text.find('.');
  const feature_row& row = known_feature(key, text.substr(0, dot));
  const std::string name = dot == std::string::npos ? "" : text.substr(dot + 1);
  if (gev::find_entry(row.entries, name) == nullptr) {
    throw std::invalid_argument(key + " '" + text + "' is no entry, those of " + row.name +
                                " are: " + gev::entry_names(row.entries));
  }
  return {row.name, name};
}

std::string fault_text(std::string text) {
  std::replace(text.begin(), text.end(), '_', ' ');
  return text;
}

using text_in = const std::string&;

struct key_row {
  const char* name;
  void (*apply)(camera_description& to, text_in key, text_in text);
};

// clang-format off
const std::array keys = {
    key_row{"serial", [](camera_description& to, text_in key, text_in text) { to.serial = identity(key, text); }},
    key_row{"model", [](camera_description& to, text_in key, text_in text) { to.model = identity(key, text); }},
    key_row{"version", [](camera_description& to, text_in key, text_in text) { to.version = identity(key, text); }},
    key_row{"user", [](camera_description& to, text_in key, text_in text) { to.user = identity(key, text); }},
    key_row{"address", [](camera_description& to, text_in key, text_in text) { to.address = address(key, text); }},
    key_row{"sensor", sensor},
    key_row{"fps", [](camera_description& to, text_in key, text_in text) {
      to.fps = power_up(key, text, "AcquisitionFrameRate"); }},
    key_row{"exposure", [](camera_description& to, text_in key, text_in text) {
      to.exposureUs = power_up(key, text, "ExposureTime"); }},
    key_row{"ticks", [](camera_description& to, text_in key, text_in text) {
      to.ticks = to_int(key, text, 0, 1'000'000'000'000); }},
    key_row{"timestamps", [](camera_description& to, text_in key, text_in text) {
      to.timestamps = static_cast<timestamp_style>(one_of(key, text, {"full", "halves", "none"})); }},
    key_row{"temperature", [](camera_description& to, text_in key, text_in text) {
      to.temperature = text == "load" ? std::nullopt
                                      : std::optional(power_up(key, text, "DeviceTemperature")); }},
    key_row{"scene", [](camera_description& to, text_in, text_in text) { to.scene = text; }},
    key_row{"noise", [](camera_description& to, text_in key, text_in text) {
      to.noise = one_of(key, text, {"off", "on"}) == 1; }},
    key_row{"picture", [](camera_description& to, text_in key, text_in text) {
      to.still = one_of(key, text, {"live", "still"}) == 1; }},
    key_row{"pacing", [](camera_description& to, text_in key, text_in text) {
      to.freePacing = one_of(key, text, {"clock", "free"}) == 1; }},
    key_row{"window-limits", [](camera_description& to, text_in key, text_in text) {
      to.liveLimits = one_of(key, text, {"fixed", "live"}) == 1; }},
    key_row{"on-close", [](camera_description& to, text_in key, text_in text) {
      to.keepOnClose = one_of(key, text, {"reset", "keep"}) == 1; }},
    key_row{"missing", [](camera_description& to, text_in key, text_in text) { to.missing = features(key, text); }},
    key_row{"readonly", [](camera_description& to, text_in key, text_in text) { to.readonly = features(key, text); }},
    key_row{"retype", [](camera_description& to, text_in key, text_in text) { to.retype = features(key, text); }},
    key_row{"entryless", [](camera_description& to, text_in key, text_in text) {
      for (const std::string& each : split(text, ",")) { to.entryless.push_back(entry_of(key, each)); } }},
    key_row{"fault", [](camera_description& to, text_in, text_in text) { to.faults.push_back(fault_text(text)); }},
};
// clang-format on

void apply_word(camera_description& to, const std::string& word) {
  const auto equals = word.find('=');
  if (equals == std::string::npos) {
    throw std::invalid_argument("'" + word + "' is not of the form key=value");
  }
  const std::string key = word.substr(0, equals);
  const auto found =
      std::find_if(keys.begin(), keys.end(), [&](const key_row& row) { return key == row.name; });
  if (found == keys.end()) {
    throw std::invalid_argument("unknown key '" + key + "', known keys are " +
                                listed(keys, [](const key_row& row) { return row.name; }));
  }
  found->apply(to, key, word.substr(equals + 1));
}

std::string default_serial(std::size_t number) {
  const std::string digits = std::to_string(number);
  return "SIM" + std::string(digits.size() < 5 ? 5 - digits.size() : 0, '0') + digits;
}

camera_description parse_camera(const std::string& words, std::size_t number) {
  camera_description camera;
  camera.serial = default_serial(number);
  camera.address = 0xA9FE4D00U + static_cast<std::uint32_t>(number % 254) + 1;
  for (const std::string& word : split(words, " \t")) {
    apply_word(camera, word);
  }
  return camera;
}

}  // namespace

std::vector<camera_description> parse_cameras(const std::string& text, std::size_t before) {
  std::vector<camera_description> cameras;
  for (const std::string& words : statements(text)) {
    const std::size_t number = cameras.size() + 1;
    try {
      cameras.push_back(parse_camera(words, before + number));
    } catch (const std::invalid_argument& error) {
      throw std::invalid_argument("camera " + std::to_string(number) + ": " + error.what());
    }
  }
  return cameras;
}

}  // namespace sim
