// The UDP port that a camera sends its frames to.
#ifndef PLATFORM_GIGE_STREAM_STREAM_SOCKET_H
#define PLATFORM_GIGE_STREAM_STREAM_SOCKET_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "platform/gige/control/descriptor.h"

namespace gige {

// Two sockets share the port. One is connected to the camera, so that it gets the camera's packets only. All
// other packets go to the second socket, the sentry, which counts and drops them. Without the sentry, the
// system would answer other hosts that the port is closed. One thread at a time calls.
class stream_socket {
 public:
  // Binds to any free port of `own`, for packets of `camera`: IPv4 addresses in host byte order. Raises
  // std::system_error.
  stream_socket(std::uint32_t own, std::uint32_t camera);

  int get() const { return connected_.get(); }
  std::uint16_t port() const { return port_; }

  // Requests a receive buffer of that many bytes, and returns how many were granted. Without privileges the
  // system's limit applies.
  std::uint32_t request_buffer(std::uint32_t bytes);

  // Receives packets from that port of the camera only; 0: from all of its ports. False, and nothing changes,
  // when there is no route to the camera.
  bool set_source(std::uint16_t port);
  // 0 until it is known.
  std::uint16_t source() const { return source_; }
  // While the source is unknown: sets it to the port of the first waiting packet that has a stream header,
  // and drops the packets before that one.
  void learn_source();

  // While muted, the socket keeps the port but receives nothing. Waiting packets are dropped.
  void mute(bool yes);
  // Drops waiting packets.
  void discard() const;

  // Sends the camera an empty packet from the stream's port. A firewall on the path that passes answers then
  // takes the stream for an answer. Firewalls forget, so the packet must be repeated every few seconds.
  void open_firewall() const;

  // The figures of the receive buffer, from one call of the system.
  struct buffer_state {
    double fill = 0;          // 0 to 1
    std::uint32_t drops = 0;  // packets that did not fit, since the socket was made; wraps
  };
  buffer_state buffer() const;
  // Packets to the port that did not come from the camera's address and port; wraps.
  std::uint32_t foreign() const;

  // The arrival of the packet that was received last. The first call returns the present time and has the
  // system record arrival times from then on.
  std::chrono::steady_clock::time_point last_arrival() const;

 private:
  std::uint32_t camera_;
  descriptor connected_;
  descriptor sentry_;
  std::uint16_t port_ = 0;
  std::uint16_t source_ = 0;
  std::uint32_t bufferBytes_ = 0;
};

}  // namespace gige

#endif
