#include "host/web/live/keep.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace host {
namespace {

// A TOML string: control characters, quotes and backslashes escaped.
std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char letter : text) {
    if (static_cast<unsigned char>(letter) < ' ' || letter == 0x7f) {
      result += fmt::format("\\u{:04X}", static_cast<unsigned char>(letter));
      continue;
    }
    result += letter == '"' || letter == '\\' ? "\\" : "";
    result += letter;
  }
  return result + '"';
}

// As it stands in a configuration.
std::string number(const setting_control& control, double value) {
  if (control.isWhole) {
    return fmt::format("{:.0f}", value);
  }
  // What was a float on its way prints as the shortest text of that float: 0.1, not 0.100000001490116.
  return fmt::format("{}", static_cast<float>(value));
}

bool is_different(const setting_control& control) {
  return control.inForce && control.restored &&
         static_cast<float>(*control.inForce) != static_cast<float>(*control.restored);
}

}  // namespace

std::string kept_toml(const live_camera& camera, const std::string& configName) {
  std::string lines;
  for (const setting_control& control : camera.controls) {
    if (is_different(control)) {
      lines += fmt::format("{} = {}  # was {}\n", control.key, number(control, *control.inForce),
                           control.configured ? number(control, *control.configured) : "left out");
    }
  }
  std::string name = configName;
  std::replace_if(
      name.begin(), name.end(), [](unsigned char letter) { return letter < ' ' || letter == 0x7f; }, '?');
  if (lines.empty()) {
    return fmt::format("# {}: camera {} runs as configured\n", name, quoted(camera.serial));
  }
  return fmt::format("# {}: what runs now is different here\n[[camera]]\nserial = {}\n{}", name,
                     quoted(camera.serial), lines);
}

}  // namespace host
