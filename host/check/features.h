// `mediagrabber features` and `mediagrabber config CAMERA`: the features of a camera, and a configuration
// made from them.
#ifndef HOST_CHECK_FEATURES_H
#define HOST_CHECK_FEATURES_H

#include <optional>
#include <string>
#include <vector>

#include "host/acquire/extension.h"
#include "host/acquire/library.h"
#include "host/config/template.h"

namespace host {

/// Lists the camera's features on standard output: all of them, or those of `wanted`, in which "NAME=VALUE"
/// is written before it is shown. As long as nothing is written, another program may control the camera. 0; 1
/// when a feature is not there or refuses the value. library_error, camera_error.
int show_features(const camera_library& library, const std::string& serial,
                  const std::vector<std::string>& wanted);

/// Writes a configuration with what the camera has now to standard output. library_error, camera_error.
int write_config(const camera_library& library, const std::string& serial);
/// The values of a configuration that these features stand for.
camera_values values_of(const std::string& serial, const std::vector<feature_record>& features);

}  // namespace host

#endif
