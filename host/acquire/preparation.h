// What the bundle expects of a camera before it creates a device.
#ifndef HOST_ACQUIRE_PREPARATION_H
#define HOST_ACQUIRE_PREPARATION_H

#include <string>

#include "host/acquire/library.h"

namespace host {

/// Sets the camera's look-up table to gamma correction, and active, where it is not. The bundle switches the
/// table off when a run starts and refuses a camera without it when a device is created: a camera that keeps
/// its registers could be used only once. To be called before every creation, while the camera is closed.
///
/// Gives what was done, for people. Empty when there was nothing to do, or when the camera can't be opened:
/// the creation that follows then tells why.
std::string prepare_camera(const camera_library& library, const std::string& serial);

}  // namespace host

#endif
