// Giving a camera an IPv4 address, also one that has none that we can reach.
#ifndef PLATFORM_GIGE_CONTROL_FORCE_IP_H
#define PLATFORM_GIGE_CONTROL_FORCE_IP_H

#include <string>
#include <vector>

#include "platform/gige/control/control_error.h"
#include "platform/gige_protocol/gvcp.h"

namespace gige {

// Has the camera take that address until it is switched off, or, with an address of 0, the one that it has
// stored. Asks by broadcast over those interfaces (none: all that are up), then searches until the camera
// answers with its address: two seconds at most, a few milliseconds for a quick camera.
//
// Raises refused when the camera does, and not_answered when it was not heard of, or kept its address.
void set_address(const gige_protocol::forced_ip& wanted, const std::vector<std::string>& interfaces);

}  // namespace gige

#endif
