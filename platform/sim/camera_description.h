// The description of a simulated camera, as text and as a record. sim.h has the keys.
#ifndef PLATFORM_SIM_CAMERA_DESCRIPTION_H
#define PLATFORM_SIM_CAMERA_DESCRIPTION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sim {

enum class timestamp_style { full, halves, none };

// One camera. A key that is left out has the default that stands here.
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
  std::optional<double> temperature{};  // degrees Celsius; none: it follows the frame rate
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

// Reads the cameras of a text. `before` is the number of cameras that exist already; default serial numbers
// and addresses count on from there. Raises std::invalid_argument: "camera 2: unknown key 'widht', known keys
// are ...".
std::vector<camera_description> parse_cameras(const std::string& text, std::size_t before);

}  // namespace sim

#endif
