#include "host/config/keys.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <string_view>

namespace host {
namespace {

// clang-format off
const config_key kGamma = {
    .name = "gamma", .row = property::VS_SWEEP_MANUAL_GAMMA, .need = presence::optional, .min = 0.01, .max = 10,
    .example = "1.0", .comment = "Gamma; 1.0 is off. Left out: stays as it is."};
const config_key kGain = {
    .name = "gain_db", .row = property::VS_SWEEP_MANUAL_GAIN_DB, .need = presence::optional, .unit = "dB",
    .min = 0, .max = 60, .example = "0.0", .comment = "Gain. Left out: stays as it is."};
const config_key kExposure = {
    .name = "exposure_us", .row = property::VS_SWEEP_MANUAL_EXPOSURE_USEC, .unit = "us", .min = 1, .max = 60e6,
    .example = "5000", .comment = "Exposure time, and the base of the IR pulse length."};
const config_key kIrLevel = {
    .name = "ir_level", .row = property::VS_SWEEP_MANUAL_IR_LEVEL, .type = key_type::integer,
    .need = presence::defaulted, .min = 0, .max = 65535, .example = "0",
    .comment = "0 switches the IR outputs off, anything else lets them follow the exposure."};

// The same setting in a sweep, where it may be left out.
config_key swept(config_key key, const char* example, const char* comment) {
  key.need = presence::optional;
  key.example = example;
  key.comment = comment;
  return key;
}
// clang-format on

std::string listed(const std::vector<choice>& choices) {
  std::string words;
  for (const choice& each : choices) {
    words += fmt::format("{}\"{}\"", words.empty() ? "" : ", ", each.name);
  }
  return words;
}

// Letters that differ only in case count as the same.
std::size_t edit_distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  const auto same = [](char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
  };
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (same(from[i], to[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

// clang-format off
const key_table& camera_keys() {
  static const key_table keys = {
      {.name = "serial", .row = property::DEV_SERIAL, .type = key_type::text, .min = 1, .max = 64,
       .example = "\"SIM00001\"", .comment = "Serial number, compared byte for byte (see 'mediagrabber cameras')."},
      {.name = "packet_size_max", .row = property::MISC_STREAM_PACKET_SIZE_BYTES_MAX, .type = key_type::integer,
       .need = presence::optional, .unit = "bytes", .min = 0, .max = 9180, .example = "1500",
       .comment = "Largest stream packet with its headers. 0 or left out: the camera library's choice."},
      {.name = "frame_rate_hz", .row = property::VS_ACQ_FPS_HZ, .unit = "Hz", .min = 0.01, .max = 10000,
       .example = "30", .comment = "Frames per second."},
      {.name = "pixel_format", .row = property::VS_ACQ_FRAME_FORMAT, .type = key_type::choice,
       .need = presence::defaulted, .example = "\"Mono8\"", .comment = "8-bit monochrome is the only format.",
       .choices = {{"Mono8", 1}}},
      {.name = "rotate180", .row = property::VS_ACQ_ROTATE180, .type = key_type::boolean,
       .need = presence::defaulted, .example = "false", .comment = "Turns the image by 180 degrees."},
      {.name = "offset_x", .row = property::VS_ACQ_SENSOR_X, .type = key_type::integer, .need = presence::defaulted,
       .unit = "px", .min = 0, .max = 65535, .example = "0", .comment = "First column of the sensor window."},
      {.name = "offset_y", .row = property::VS_ACQ_SENSOR_Y, .type = key_type::integer, .need = presence::defaulted,
       .unit = "px", .min = 0, .max = 65535, .example = "0", .comment = "First line of the sensor window."},
      {.name = "width", .row = property::VS_ACQ_SENSOR_W, .type = key_type::integer, .unit = "px", .min = 1,
       .max = 65535, .example = "1280", .comment = "Pixels a line of the sensor window."},
      {.name = "height", .row = property::VS_ACQ_SENSOR_H, .type = key_type::integer, .unit = "px", .min = 1,
       .max = 65535, .example = "1024", .comment = "Lines of the sensor window."},
      kExposure, kGain, kGamma, kIrLevel};
  return keys;
}

const key_table& pin_keys() {
  static const key_table keys = {
      {.name = "line", .row = property::PINx_REF, .type = key_type::choice, .example = "\"Line3\"",
       .comment = "Camera output line that the IR light hangs on.", .choices = {{"Line3", 5}, {"Line4", 6}}},
      {.name = "source", .row = property::PINx_SOURCE, .type = key_type::choice, .need = presence::defaulted,
       .example = "\"exposure\"", .comment = "Pulse as long as the exposure, or exposure_ratio of it.",
       .choices = {{"exposure", 2}, {"exposure_ratio", 3}}},
      {.name = "polarity", .row = property::PINx_INVERTER, .type = key_type::choice, .need = presence::defaulted,
       .example = "\"normal\"", .comment = "Whether the line is inverted.",
       .choices = {{"normal", 1}, {"inverted", 2}}},
      {.name = "exposure_ratio", .row = property::PINx_EXPOSURE_RATIO, .type = key_type::integer,
       .need = presence::optional, .unit = "percent", .min = 1, .max = 1000, .example = "50",
       .comment = "Pulse length against the exposure time. Required with source = \"exposure_ratio\"."},
      {.name = "reserved", .row = property::PINx_RESERVED, .type = key_type::integer, .need = presence::optional,
       .min = -2147483648.0, .max = 2147483647.0, .example = "0", .comment = "Handed over, but not read by the driver."}};
  return keys;
}

const key_table& sweep_keys() {
  static const key_table keys = {
      {.name = "camera", .type = key_type::text, .need = presence::optional, .min = 1, .max = 64,
       .example = "\"SIM00001\"", .comment = "Serial number of the camera it is for. Left out: all of them."},
      {.name = "after_seconds", .need = presence::optional, .unit = "s", .min = 0, .max = 1e6, .example = "10",
       .comment = "Wait before it is applied, since the sweep before or the first frame. This or after_frames."},
      {.name = "after_frames", .type = key_type::integer, .need = presence::optional, .unit = "frames", .min = 1,
       .max = 1e9, .example = "300", .comment = "The same wait counted in frames."},
      {.name = "loop", .type = key_type::boolean, .need = presence::defaulted, .example = "false",
       .comment = "Whether it comes round again after the last sweep."},
      swept(kExposure, "2500", "Exposure time. Left out: stays as it is."), swept(kGain, "6.0", kGain.comment),
      swept(kGamma, "2.0", kGamma.comment), swept(kIrLevel, "1", "As for a camera. Left out: stays as it is.")};
  return keys;
}
// clang-format on

const config_key* find_key(const key_table& keys, const std::string& name) {
  const auto found =
      std::find_if(keys.begin(), keys.end(), [&](const config_key& each) { return name == each.name; });
  return found == keys.end() ? nullptr : &*found;
}

std::string expectation(const config_key& key) {
  const std::string unit = *key.unit != '\0' ? fmt::format(" {}", key.unit) : "";
  switch (key.type) {
    case key_type::text:
      return fmt::format("a text of {} to {} characters", key.min, key.max);
    case key_type::integer:
      return fmt::format("a whole number from {:.0f} to {:.0f}{}", key.min, key.max, unit);
    case key_type::number:
      return fmt::format("a number from {} to {:.0f}{}", key.min, key.max, unit);
    case key_type::boolean:
      return "true or false";
    case key_type::choice:
      break;
  }
  return (key.choices.size() > 1 ? "one of " : "") + listed(key.choices);
}

std::string unit_of(const std::string& key) {
  for (const key_table* keys : {&camera_keys(), &pin_keys(), &sweep_keys()}) {
    if (const config_key* found = find_key(*keys, key)) {
      return found->unit;
    }
  }
  return "";
}

std::string nearest(const std::string& word, const std::vector<std::string>& known) {
  std::string best;
  std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
  for (const std::string& each : known) {
    const std::size_t distance = edit_distance(word, each);
    if (distance < least && distance < each.size()) {
      least = distance;
      best = each;
    }
  }
  return best;
}

}  // namespace host
