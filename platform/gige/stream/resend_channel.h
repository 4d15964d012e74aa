// Where lost packets are asked for again.
#ifndef PLATFORM_GIGE_STREAM_RESEND_CHANNEL_H
#define PLATFORM_GIGE_STREAM_RESEND_CHANNEL_H

#include <cstdint>

#include "platform/gige/control/descriptor.h"
#include "platform/gige/stream/frame_owner.h"
#include "platform/gige_protocol/gvsp.h"

namespace gige {

// A socket to the control port of the camera, apart from that of the commands, whose answers may be waited
// for. Requests are answered with packets only, and one that gets lost is repeated, so sending never waits.
// Used by one thread at a time.
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
