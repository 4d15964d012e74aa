#include "host/config/config.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <utility>

#include "host/config/text_file.h"

namespace host {
namespace {

using cell_value = decltype(cell::value);

constexpr std::size_t kBytesMax = 1 << 20;
constexpr std::chrono::milliseconds kPatience{1000};

struct finding {
  toml::source_position where;
  std::string text;
  bool isWarning = false;
};

// A section's values by key: a choice is already its code, a number a float.
using section_values = std::map<std::string, cell_value, std::less<>>;

template <class T>
std::optional<T> get(const section_values& values, const char* key) {
  const auto found = values.find(key);
  return found == values.end() ? std::nullopt : std::optional(std::get<T>(found->second));
}

std::string shown(const toml::node& node) {
  if (node.is_table()) {
    return "a table";
  }
  if (node.is_array()) {
    return "an array";
  }
  std::ostringstream text;
  node.visit([&](const auto& value) { text << toml::toml_formatter(value); });
  return text.str();
}

std::optional<cell_value> choice_code(const config_key& key, const std::string& word) {
  const auto found = std::find_if(key.choices.begin(), key.choices.end(),
                                  [&](const choice& each) { return word == each.name; });
  return found == key.choices.end() ? std::nullopt : std::optional<cell_value>(found->code);
}

// The value of a node, when it is what the key expects.
std::optional<cell_value> convert(const config_key& key, const toml::node& node) {
  const auto within = [&](double value) { return value >= key.min && value <= key.max; };
  switch (key.type) {
    case key_type::text:
      if (node.is_string() && within(static_cast<double>(node.as_string()->get().size()))) {
        return node.as_string()->get();
      }
      break;
    case key_type::integer:
      if (node.is_integer() && within(static_cast<double>(node.as_integer()->get()))) {
        return node.as_integer()->get();
      }
      break;
    case key_type::number:
      if (node.is_number() && within(*node.value<double>())) {
        return static_cast<float>(*node.value<double>());
      }
      break;
    case key_type::boolean:
      if (node.is_boolean()) {
        return node.as_boolean()->get();
      }
      break;
    case key_type::choice:
      return node.is_string() ? choice_code(key, node.as_string()->get()) : std::nullopt;
  }
  return std::nullopt;
}

cell_value default_of(const config_key& key) {
  const toml::table example = toml::parse(fmt::format("value = {}", key.example));
  return convert(key, *example.get("value")).value();
}

std::vector<std::string> names_of(const key_table& keys) {
  std::vector<std::string> names;
  std::transform(keys.begin(), keys.end(), std::back_inserter(names),
                 [](const config_key& key) { return key.name; });
  return names;
}

light_settings settings_of(const section_values& values) {
  return {.gainDb = get<float>(values, "gain_db"),
          .exposureUs = get<float>(values, "exposure_us"),
          .gamma = get<float>(values, "gamma"),
          .irLevel = get<std::int64_t>(values, "ir_level")};
}

void add_cells(const key_table& keys, const section_values& values, std::uint8_t col,
               std::vector<cell>& cells) {
  for (const config_key& key : keys) {
    const auto found = values.find(key.name);
    if (key.row && found != values.end()) {
      cells.push_back({*key.row, col, found->second});
    }
  }
}

// Reads one file and collects what is wrong with it on the way.
class config_reader {
 public:
  config read(const toml::table& file);
  std::vector<finding> take_findings() { return std::move(findings_); }

 private:
  void report(const toml::node& node, const std::string& key, const std::string& found,
              const std::string& right) {
    findings_.push_back({node.source().begin, fmt::format("{}: found {}, must be {}", key, found, right)});
  }

  // What is set but does nothing.
  void warn(const toml::node& node, const std::string& key, const std::string& why) {
    findings_.push_back({node.source().begin, fmt::format("{} has no effect: {}", key, why), true});
  }

  void reject_unknown(const toml::table& section, const std::string& prefix,
                      const std::vector<std::string>& known);
  section_values read_section(const toml::table& section, const std::string& path, const key_table& keys,
                              const std::vector<std::string>& subsections = {});
  void each_table(const toml::table& parent, const char* name, const std::string& prefix,
                  const std::function<void(const toml::table&, const std::string&)>& visit);
  camera_config read_camera(const toml::table& section, const std::string& path);
  void read_pins(const toml::table& section, const std::string& path, camera_config& camera);
  void check_ratio(const toml::table& pin, const std::string& path, std::optional<std::int64_t> source);
  sweep_config read_sweep(const toml::table& section, const std::string& path,
                          const std::vector<camera_config>& cameras);

  std::vector<finding> findings_;
};

void config_reader::reject_unknown(const toml::table& section, const std::string& prefix,
                                   const std::vector<std::string>& known) {
  for (const auto& [key, node] : section) {
    const std::string name(key.str());
    if (std::find(known.begin(), known.end(), name) != known.end()) {
      continue;
    }
    const std::string meant = nearest(name, known);
    report(node, prefix + name, "an unknown key",
           meant.empty() ? fmt::format("one of {}", fmt::join(known, ", "))
                         : fmt::format("a known one; did you mean '{}'?", meant));
  }
}

section_values config_reader::read_section(const toml::table& section, const std::string& path,
                                           const key_table& keys,
                                           const std::vector<std::string>& subsections) {
  std::vector<std::string> known = names_of(keys);
  known.insert(known.end(), subsections.begin(), subsections.end());
  reject_unknown(section, path + ".", known);
  section_values values;
  for (const config_key& key : keys) {
    const std::string name = fmt::format("{}.{}", path, key.name);
    const toml::node* node = section.get(key.name);
    if (node == nullptr) {
      if (key.need == presence::required) {
        report(section, name, "nothing", expectation(key));
      } else if (key.need == presence::defaulted) {
        values.emplace(key.name, default_of(key));
      }
    } else if (auto value = convert(key, *node)) {
      values.emplace(key.name, std::move(*value));
    } else {
      report(*node, name, shown(*node), expectation(key));
    }
  }
  return values;
}

void config_reader::each_table(const toml::table& parent, const char* name, const std::string& prefix,
                               const std::function<void(const toml::table&, const std::string&)>& visit) {
  const toml::node* node = parent.get(name);
  if (node == nullptr) {
    return;
  }
  if (!node->is_array_of_tables()) {
    report(*node, prefix + name, shown(*node),
           fmt::format("an array of tables, written [[{}{}]]", prefix.empty() ? "" : "camera.", name));
    return;
  }
  std::size_t number = 0;
  for (const toml::node& each : *node->as_array()) {
    visit(*each.as_table(), fmt::format("{}{}[{}]", prefix, name, ++number));
  }
}

camera_config config_reader::read_camera(const toml::table& section, const std::string& path) {
  const section_values values = read_section(section, path, camera_keys(), {"pin"});
  camera_config camera;
  camera.serial = get<std::string>(values, "serial").value_or("");
  camera.frameRateHz = static_cast<double>(get<float>(values, "frame_rate_hz").value_or(0));
  camera.width = get<std::int64_t>(values, "width").value_or(0);
  camera.height = get<std::int64_t>(values, "height").value_or(0);
  camera.initial = settings_of(values);
  add_cells(camera_keys(), values, 0, camera.cells);
  read_pins(section, path, camera);
  if (camera.pins == 0 && camera.initial.irLevel.value_or(0) != 0) {
    warn(*section.get("ir_level"), path + ".ir_level", "the camera has no [[camera.pin]]");
  }
  return camera;
}

// The ratio and the source that uses it come together.
void config_reader::check_ratio(const toml::table& pin, const std::string& path,
                                std::optional<std::int64_t> source) {
  const config_key& ratio = *find_key(pin_keys(), "exposure_ratio");
  const bool isUsed =
      source && choice_code(*find_key(pin_keys(), "source"), "exposure_ratio") == cell_value(*source);
  const toml::node* value = pin.get(ratio.name);
  if (isUsed && value == nullptr) {
    report(pin, path + ".exposure_ratio", "nothing",
           "there when source is \"exposure_ratio\": " + expectation(ratio));
  }
  if (!isUsed && value != nullptr) {
    warn(*value, path + ".exposure_ratio", "source is not \"exposure_ratio\"");
  }
}

void config_reader::read_pins(const toml::table& section, const std::string& path, camera_config& camera) {
  std::set<std::int64_t> lines;
  each_table(section, "pin", path + ".", [&](const toml::table& pin, const std::string& pinPath) {
    const section_values values = read_section(pin, pinPath, pin_keys());
    const auto code = [&](const char* key) { return get<std::int64_t>(values, key); };
    if (code("line") && !lines.insert(*code("line")).second) {
      report(*pin.get("line"), pinPath + ".line", shown(*pin.get("line")), "a line that no other pin has");
    }
    check_ratio(pin, pinPath, code("source"));
    add_cells(pin_keys(), values, static_cast<std::uint8_t>(camera.pins), camera.cells);
    ++camera.pins;
  });
  camera.cells.push_back({property::PIN_COUNT, 0, static_cast<std::int64_t>(camera.pins)});
}

sweep_config config_reader::read_sweep(const toml::table& section, const std::string& path,
                                       const std::vector<camera_config>& cameras) {
  const section_values values = read_section(section, path, sweep_keys());
  sweep_config sweep;
  sweep.serial = get<std::string>(values, "camera").value_or("");
  sweep.afterFrames = get<std::int64_t>(values, "after_frames");
  if (const auto seconds = get<float>(values, "after_seconds")) {
    sweep.afterSeconds = static_cast<double>(*seconds);
  }
  sweep.loop = get<bool>(values, "loop").value_or(false);
  sweep.settings = settings_of(values);

  if (section.contains("after_seconds") == section.contains("after_frames")) {
    report(section, path, section.contains("after_frames") ? "both waits" : "no wait",
           "one of after_seconds and after_frames");
  }
  const auto isThere = [&](const char* key) { return section.contains(key); };
  const std::vector<const char*> settings = {"gain_db", "exposure_us", "gamma", "ir_level"};
  if (std::none_of(settings.begin(), settings.end(), isThere)) {
    report(section, path, "no setting", "at least one of gain_db, exposure_us, gamma and ir_level");
  }
  std::vector<std::string> serials;
  std::transform(cameras.begin(), cameras.end(), std::back_inserter(serials),
                 [](const camera_config& camera) { return camera.serial; });
  if (!sweep.serial.empty() && std::find(serials.begin(), serials.end(), sweep.serial) == serials.end()) {
    const toml::node& node = *section.get("camera");
    report(node, path + ".camera", shown(node),
           fmt::format("the serial of a configured camera: {}", fmt::join(serials, ", ")));
  }
  const bool hasPins = std::any_of(cameras.begin(), cameras.end(), [&](const camera_config& camera) {
    return camera.pins > 0 && (sweep.serial.empty() || sweep.serial == camera.serial);
  });
  if (sweep.settings.irLevel && !hasPins) {
    warn(*section.get("ir_level"), path + ".ir_level", "no camera that it is for has a [[camera.pin]]");
  }
  return sweep;
}

config config_reader::read(const toml::table& file) {
  config result;
  reject_unknown(file, "", {"camera", "sweep"});
  if (!file.contains("camera")) {
    report(file, "camera", "nothing", "at least one [[camera]]");
  }
  std::set<std::string> serials;
  each_table(file, "camera", "", [&](const toml::table& section, const std::string& path) {
    result.cameras.push_back(read_camera(section, path));
    const std::string& serial = result.cameras.back().serial;
    if (!serial.empty() && !serials.insert(serial).second) {
      const toml::node& node = *section.get("serial");
      report(node, path + ".serial", shown(node), "a serial that no other [[camera]] has");
    }
  });
  each_table(file, "sweep", "", [&](const toml::table& section, const std::string& path) {
    result.sweeps.push_back(read_sweep(section, path, result.cameras));
  });
  return result;
}

std::string plain(const toml::parse_error& error) {
  return fmt::format("the line is not valid TOML: {}", error.description());
}

void set_cell(Zavik::Support::rw_table_like& table, const cell& each) {
  const auto row = static_cast<std::uint8_t>(each.row);
  if (const auto* flag = std::get_if<bool>(&each.value)) {
    table.setBool(row, each.col, *flag);
  } else if (const auto* whole = std::get_if<std::int64_t>(&each.value)) {
    table.setInt64(row, each.col, *whole);
  } else if (const auto* number = std::get_if<float>(&each.value)) {
    table.setFloat(row, each.col, *number);
  } else {
    table.setString(row, each.col, std::get<std::string>(each.value));
  }
}

template <class T>
void set_present(Zavik::Support::rw_table_like& table, property row, const std::optional<T>& value) {
  if (value) {
    set_cell(table, {row, 0, *value});
  }
}

}  // namespace

double camera_config::period_us() const {
  return std::max(1e6 / frameRateHz, static_cast<double>(initial.exposureUs.value_or(0)));
}

std::vector<std::string> config::serials() const {
  std::vector<std::string> all;
  std::transform(cameras.begin(), cameras.end(), std::back_inserter(all),
                 [](const camera_config& camera) { return camera.serial; });
  return all;
}

std::vector<sweep_config> config::sweeps_of(const std::string& serial) const {
  std::vector<sweep_config> own;
  std::copy_if(sweeps.begin(), sweeps.end(), std::back_inserter(own),
               [&](const sweep_config& sweep) { return sweep.serial.empty() || sweep.serial == serial; });
  return own;
}

config_result parse_config(std::string_view text, const std::string& name) {
  config_result result;
  std::vector<finding> findings;
  try {
    config_reader reader;
    result.value = reader.read(toml::parse(text));
    findings = reader.take_findings();
  } catch (const toml::parse_error& error) {
    findings = {{error.source().begin, plain(error), false}};
  }
  std::stable_sort(findings.begin(), findings.end(),
                   [](const finding& a, const finding& b) { return a.where.line < b.where.line; });
  for (const finding& each : findings) {
    (each.isWarning ? result.warnings : result.errors)
        .push_back(fmt::format("{}:{}: {}", name, std::max(each.where.line, 1U), each.text));
  }
  return result;
}

config_result load_config(const std::string& path) {
  const text_file file = read_text(path, kBytesMax, kPatience);
  if (file.failure) {
    return {.value = {},
            .errors = {fmt::format("{}: {}; 'mediagrabber config' writes a configuration to start from", path,
                                   *file.failure)},
            .warnings = {}};
  }
  return parse_config(file.text, path);
}

table_holder make_table(const camera_config& camera) {
  table_holder table(Zavik::Support::Table__Create());
  for (const cell& each : camera.cells) {
    set_cell(*table, each);
  }
  return table;
}

void write_settings(const light_settings& settings, Zavik::Support::rw_table_like& table) {
  set_present(table, property::VS_SWEEP_MANUAL_GAMMA, settings.gamma);
  set_present(table, property::VS_SWEEP_MANUAL_GAIN_DB, settings.gainDb);
  set_present(table, property::VS_SWEEP_MANUAL_EXPOSURE_USEC, settings.exposureUs);
  set_present(table, property::VS_SWEEP_MANUAL_IR_LEVEL, settings.irLevel);
}

}  // namespace host
