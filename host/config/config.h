// A configuration file: reading it, and everything that is wrong with it.
#ifndef HOST_CONFIG_CONFIG_H
#define HOST_CONFIG_CONFIG_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/table.h"
#include "host/config/keys.h"

namespace host {

/// The settings that a sweep may change. What is absent stays as it is.
struct light_settings {
  std::optional<float> gainDb = std::nullopt;
  std::optional<float> exposureUs = std::nullopt;
  std::optional<float> gamma = std::nullopt;
  std::optional<std::int64_t> irLevel = std::nullopt;

  bool operator==(const light_settings&) const = default;
};

/// One cell of the property table.
struct cell {
  property row;
  std::uint8_t col;
  std::variant<bool, std::int64_t, float, std::string> value;

  bool operator==(const cell&) const = default;
};

struct camera_config {
  std::string serial;
  double frameRateHz = 0;
  std::int64_t width = 0;   ///< pixels
  std::int64_t height = 0;  ///< lines
  std::size_t pins = 0;
  light_settings initial;  ///< exposure and IR level are always there
  std::vector<cell> cells;

  /// Microseconds between two frames: an exposure longer than the frame period caps the rate.
  double period_us() const;
  std::size_t frame_bytes() const { return static_cast<std::size_t>(width * height); }
};

struct sweep_config {
  std::string serial;  ///< empty: for all cameras
  std::optional<double> afterSeconds = std::nullopt;
  std::optional<std::int64_t> afterFrames = std::nullopt;  ///< one of the two is set
  bool loop = false;
  light_settings settings;
};

struct config {
  std::vector<camera_config> cameras;
  std::vector<sweep_config> sweeps;

  std::vector<std::string> serials() const;
  /// The sweeps for one camera, in the order of the file.
  std::vector<sweep_config> sweeps_of(const std::string& serial) const;
};

/// A configuration, or, when `errors` is not empty, everything that is wrong with it, in the order of the
/// file: "camera.toml:12: camera[2].gain_db: found -3, must be a number from 0 to 60 dB".
struct config_result {
  config value;
  std::vector<std::string> errors;
  std::vector<std::string> warnings;  ///< what is set and has no effect; in the same form
};

/// Reads a file, or a pipe until its writer closes it: at most 1 MiB. Waits for a pipe's writer at most a
/// second.
config_result load_config(const std::string& path);
/// As load_config, from text; `name` is what the errors call it.
config_result parse_config(std::string_view text, const std::string& name);

struct table_releaser {
  void operator()(Zavik::Support::rw_table_like* table) const { table->release(); }
};
using table_holder = std::unique_ptr<Zavik::Support::rw_table_like, table_releaser>;

/// The camera as a property table.
table_holder make_table(const camera_config& camera);
/// Writes the settings that are there into a sweep table.
void write_settings(const light_settings& settings, Zavik::Support::rw_table_like& table);

}  // namespace host

#endif
