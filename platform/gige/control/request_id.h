// The first request id of a client.
#ifndef PLATFORM_GIGE_CONTROL_REQUEST_ID_H
#define PLATFORM_GIGE_CONTROL_REQUEST_ID_H

#include <cstdint>
#include <random>

#include "platform/gige_protocol/gvcp.h"

namespace gige {

// Random, never 0. So an answer to an earlier client with the same port, or a forged one, most likely has
// another id.
inline std::uint16_t random_request_id() {
  return gige_protocol::next_request_id(static_cast<std::uint16_t>(std::random_device{}()));
}

}  // namespace gige

#endif
