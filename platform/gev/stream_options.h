// The stream options of a camera: one row each.
#ifndef PLATFORM_GEV_STREAM_OPTIONS_H
#define PLATFORM_GEV_STREAM_OPTIONS_H

#include <gevapi.h>

#include <string>

namespace gev {

// What an opened camera starts with.
GEV_CAMERA_OPTIONS default_options();
// Whether the library can work with all of them.
bool possible(const GEV_CAMERA_OPTIONS& options);
// "heartbeat_timeout_ms:5000, streamPktSize:1500, ...", all of them.
std::string listed(const GEV_CAMERA_OPTIONS& options);

}  // namespace gev

#endif
