// The first request id of whoever sends commands.
#ifndef PLATFORM_GIGE_CONTROL_REQUEST_ID_H
#define PLATFORM_GIGE_CONTROL_REQUEST_ID_H

#include <cstdint>
#include <random>

#include "platform/gige_protocol/gvcp.h"

namespace gige {

// Never 0, and not to be foreseen: an answer to somebody who had the same port before, or one that is forged,
// most likely bears another one.
inline std::uint16_t random_request_id() {
  return gige_protocol::next_request_id(static_cast<std::uint16_t>(std::random_device{}()));
}

}  // namespace gige

#endif
