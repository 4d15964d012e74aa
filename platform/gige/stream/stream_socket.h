// The UDP port that a camera sends its frames to.
#ifndef PLATFORM_GIGE_STREAM_STREAM_SOCKET_H
#define PLATFORM_GIGE_STREAM_STREAM_SOCKET_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "platform/gige/control/descriptor.h"

namespace gige {

// Two sockets share the port. One is connected to the camera, so that the system itself turns away everything
// else. What it turns away goes to the other one, the sentry, which only counts: without it, the system would
// answer strangers that the port is closed. Calls come from one thread at a time.
class stream_socket {
 public:
  // Binds to any free port of `own`, for packets of `camera`: IPv4 addresses in host byte order. Raises
  // std::system_error.
  stream_socket(std::uint32_t own, std::uint32_t camera);

  int get() const { return connected_.get(); }
  std::uint16_t port() const { return port_; }

  // Asks for a receive buffer of so many bytes, and gives how many there are now: the system has a limit, but
  // for processes with privileges.
  std::uint32_t request_buffer(std::uint32_t bytes);

  // The port that the camera sends from: takes packets from there only; 0: from all of its ports. False, with
  // everything as before, when no way leads to the camera.
  bool set_source(std::uint16_t port);
  // 0 until it is known.
  std::uint16_t source() const { return source_; }
  // As long as the source is not known: takes the port of the first waiting packet that can be the camera's
  // for it, and drops the packets in front of that one.
  void learn_source();

  // While muted, the socket holds the port but takes no packets; what waits is dropped.
  void mute(bool yes);
  // Drops what waits.
  void discard() const;

  // Sends the camera an empty packet from the stream's port: a firewall on the way that lets answers pass
  // takes the stream for one. Firewalls forget, so it is to be sent again every few seconds.
  void open_firewall() const;

  // The figures of the receive buffer, from one call of the system.
  struct buffer_state {
    double fill = 0;          // 0 to 1
    std::uint32_t drops = 0;  // packets that it had no room for, since the socket was made; counts around
  };
  buffer_state buffer() const;
  // Packets to the port that were not from the camera's address and port; counts around.
  std::uint32_t foreign() const;

  // When the packet arrived that was received last, by the clock of std::chrono::steady_clock. The first call
  // gives the time now, and has the system note times from then on.
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
