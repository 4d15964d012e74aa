// The stream options of a camera: one row each.
#ifndef PLATFORM_GEV_STREAM_OPTIONS_H
#define PLATFORM_GEV_STREAM_OPTIONS_H

#include <gevapi.h>

#include <string>

namespace gev {

// The options of a camera that was just opened.
GEV_CAMERA_OPTIONS default_options();

// GevGetCameraInterfaceOptions and GevSetCameraInterfaceOptions of a camera that keeps its options in `kept`,
// under the camera's lock. PARAMETER_NULL for a null pointer. Options of which one is out of its range are
// not kept: PARAMETER_INVALID.
GEV_STATUS read_options(const GEV_CAMERA_OPTIONS& kept, GEV_CAMERA_OPTIONS* to);
GEV_STATUS replace_options(GEV_CAMERA_OPTIONS& kept, const GEV_CAMERA_OPTIONS* by);

// All options as text: "heartbeat_timeout_ms:5000, streamPktSize:1500, ...".
std::string listed(const GEV_CAMERA_OPTIONS& options);

}  // namespace gev

#endif
