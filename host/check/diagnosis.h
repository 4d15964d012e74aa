// Why the bundle can't create a device for a camera: what the camera takes, against what is configured. The
// bundle says that a creation failed, the camera says why.
#ifndef HOST_CHECK_DIAGNOSIS_H
#define HOST_CHECK_DIAGNOSIS_H

#include <vector>

#include "host/acquire/camera_runner.h"
#include "host/acquire/extension.h"
#include "host/acquire/library.h"
#include "host/config/config.h"

namespace host {

/// Looks for the camera, opens it and compares. No lines when nothing was found against it. Not
/// while the camera is open in this process. `isSimulated` as in search_cameras.
refusal_reasons diagnose(const camera_library& library, const camera_config& camera, bool isSimulated);

/// A line for all that does not fit between a configuration and a camera's features, in the configuration's
/// units: features that the bundle needs and the camera lacks, values beyond the camera's limits, increments
/// and entries.
std::vector<std::string> misfits(const camera_config& camera, const std::vector<feature_record>& features);

}  // namespace host

#endif
