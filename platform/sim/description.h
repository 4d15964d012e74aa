// The description of simulated cameras as in sim.h.
#ifndef PLATFORM_SIM_DESCRIPTION_H
#define PLATFORM_SIM_DESCRIPTION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sim {

enum class timestamp_style { full, halves, none };

// One camera; the defaults are those of a key that is left out.
struct camera_description {
  std::string serial{};  // "SIM" and the number of the camera when left out
  std::string model = "SM-1280";
  std::string version = "1.04";
  std::string user{};
  std::uint32_t address = 0;  // IPv4 in host byte order; 169.254.77.<number> when left out
  std::int64_t width = 1280;  // of the sensor, pixels
  std::int64_t height = 1024;
  double fps = 30;
  double exposureUs = 5000;
  std::int64_t ticks = 1'000'000'000;
  timestamp_style timestamps = timestamp_style::full;
  std::optional<double> temperature{};  // none: it follows the load
  std::string scene = "default";
  bool noise = true;
  bool still = false;
  bool freePacing = false;
  bool liveLimits = false;
  bool keepOnClose = false;
  std::vector<std::string> missing{};
  std::vector<std::string> readonly{};
  std::vector<std::string> retype{};
  std::vector<std::pair<std::string, std::string>> entryless{};  // feature and entry
  std::vector<std::string> faults{};
};

// Reads a description; `before` is the number of cameras that there already are. Raises
// std::invalid_argument: "camera 2: unknown key 'widht', known keys are ...".
std::vector<camera_description> parse_cameras(const std::string& text, std::size_t before);

}  // namespace sim

#endif
