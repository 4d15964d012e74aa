// Sends resend requests to the camera.
#ifndef PLATFORM_GIGE_STREAM_RESEND_CHANNEL_H
#define PLATFORM_GIGE_STREAM_RESEND_CHANNEL_H

#include <cstdint>

#include "platform/gige/control/descriptor.h"
#include "platform/gige/stream/frame_owner.h"
#include "platform/gige_protocol/gvsp.h"

namespace gige {

// A socket of its own to the camera's control port, since another thread may be waiting for an answer on the
// socket for commands. The camera answers a request with stream packets only, and a lost request is repeated,
// so `send` does not wait. Used by one thread at a time.
class resend_channel {
 public:
  // IPv4 addresses in host byte order. Raises std::system_error.
  resend_channel(std::uint32_t own, std::uint32_t camera, gige_protocol::id_mode ids);

  void send(const packet_range& packets);

 private:
  descriptor socket_;
  const gige_protocol::id_mode ids_;
  std::uint16_t requestId_ = 1;
};

}  // namespace gige

#endif
