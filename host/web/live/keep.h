// The settings in force as a part of a configuration.
#ifndef HOST_WEB_LIVE_KEEP_H
#define HOST_WEB_LIVE_KEEP_H

#include <string>

#include "host/web/live/live_run.h"

namespace host {

/// The settings of a camera that differ from those of its configuration, as TOML to put in their place:
///
///     # examples/camera.toml: what runs now is different here
///     [[camera]]
///     serial = "SIM00001"
///     exposure_us = 2500  # was 5000
///
/// Only a comment when nothing differs.
std::string kept_toml(const live_camera& camera, const std::string& configName);

}  // namespace host

#endif
