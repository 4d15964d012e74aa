// Finding cameras.
#ifndef PLATFORM_ARAVIS_DISCOVERY_H
#define PLATFORM_ARAVIS_DISCOVERY_H

#include <gevapi.h>

#include <cstdint>
#include <vector>

#include "platform/aravis/environment.h"

namespace gige {

struct found_camera {
  GEV_DEVICE_INTERFACE record{};
  std::uint32_t interfaceAddress = 0;  // our own address towards it, host byte order; 0 when not known
};

// Asks all networks of the environment at once and gathers answers until none has come for the time it
// sets; when nobody answered, asks once more. A camera that answers twice counts once. Ordered by address.
// Finding none leaves log lines that say who was asked.
std::vector<found_camera> find_cameras(const environment& where);

}  // namespace gige

#endif
