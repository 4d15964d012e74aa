// The configuration that `mediagrabber config` writes.
#ifndef HOST_CONFIG_TEMPLATE_H
#define HOST_CONFIG_TEMPLATE_H

#include <functional>
#include <map>
#include <string>

namespace host {

/// What a camera has of one key of [[camera]].
struct camera_value {
  std::string value;   ///< as it stands in a file
  std::string limits;  ///< for a comment: "64 to 640 in steps of 16"; may be empty
};
using camera_values = std::map<std::string, camera_value, std::less<>>;

/// A configuration with every key, its unit, range and default as comments. It is valid as it is. With the
/// values of a camera it is one of that camera.
std::string config_template(const camera_values& camera = {});

}  // namespace host

#endif
