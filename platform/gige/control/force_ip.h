// Giving a camera an IPv4 address, also a camera that is out of reach.
#ifndef PLATFORM_GIGE_CONTROL_FORCE_IP_H
#define PLATFORM_GIGE_CONTROL_FORCE_IP_H

#include <string>
#include <vector>

#include "platform/gige/control/control_error.h"
#include "platform/gige_protocol/gvcp.h"

namespace gige {

// Sends FORCEIP by broadcast over those interfaces (none: all that are up), then searches until the camera
// answers from the new address. That takes a few milliseconds with a quick camera, and two seconds at most.
// The address holds until the camera is switched off. With an address of 0 the camera takes its stored one.
//
// Raises refused when the camera refuses, and not_answered when it does not answer or keeps its address.
void set_address(const gige_protocol::forced_ip& wanted, const std::vector<std::string>& interfaces);

}  // namespace gige

#endif
