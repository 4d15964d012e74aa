#include "platform/gige/stream/resend_channel.h"

#include <sys/socket.h>

#include "platform/gige/stream/sockets.h"
#include "platform/gige_protocol/gvcp.h"

namespace gige {

resend_channel::resend_channel(std::uint32_t own, std::uint32_t camera, gige_protocol::id_mode ids)
    : socket_(bind_udp(own, 0, false)), ids_(ids) {
  if (!connect_udp(socket_, camera, gige_protocol::controlPort)) {
    raise_socket_error("finding a route to the camera");
  }
}

void resend_channel::send(const packet_range& packets) {
  const auto message = gige_protocol::make_packet_resend(
      requestId_,
      {.ids = ids_, .blockId = packets.blockId, .firstPacket = packets.first, .lastPacket = packets.last});
  requestId_ = gige_protocol::next_request_id(requestId_);
  ::send(socket_.get(), message.data(), message.size(), MSG_DONTWAIT);
}

}  // namespace gige
