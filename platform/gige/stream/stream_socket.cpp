#include "platform/gige/stream/stream_socket.h"

#include <linux/sock_diag.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <span>

#include "platform/gige/control/addresses.h"
#include "platform/gige/stream/sockets.h"
#include "platform/gige_protocol/gvsp.h"

namespace gige {
namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

void set_option(int socket, int option, int value) {
  setsockopt(socket, SOL_SOCKET, option, &value, sizeof value);
}

std::array<std::uint32_t, SK_MEMINFO_VARS> memory_of(int socket) {
  std::array<std::uint32_t, SK_MEMINFO_VARS> figures{};
  socklen_t size = sizeof figures;
  getsockopt(socket, SOL_SOCKET, SO_MEMINFO, figures.data(), &size);
  return figures;
}

}  // namespace

stream_socket::stream_socket(std::uint32_t own, std::uint32_t camera)
    : camera_(camera), connected_(bind_udp(own, 0, true)) {
  port_ = ntohs(bound_address(connected_.get()).sin_port);
  sentry_ = bind_udp(own, port_, true);
  drop_everything(sentry_);
  set_shared(connected_, false);  // by nobody else
  set_shared(sentry_, false);
  if (!set_source(0)) {
    raise_socket_error("finding a route to the camera");
  }
}

std::uint32_t stream_socket::request_buffer(std::uint32_t bytes) {
  const int requested = static_cast<int>(bytes);
  if (setsockopt(get(), SOL_SOCKET, SO_RCVBUFFORCE, &requested, sizeof requested) != 0) {
    set_option(get(), SO_RCVBUF, requested);
  }
  bufferBytes_ = memory_of(get())[SK_MEMINFO_RCVBUF] / 2;  // the other half is for the system's own use
  return bufferBytes_;
}

bool stream_socket::set_source(std::uint16_t port) {
  if (!connect_udp(connected_, camera_, port)) {
    return false;
  }
  source_ = port;
  return true;
}

void stream_socket::learn_source() {
  std::array<std::uint8_t, gige_protocol::extendedHeaderSize> header{};
  sockaddr_in from{};
  for (bool reachable = true; reachable && source_ == 0;) {
    socklen_t size = sizeof from;
    const ssize_t got = recvfrom(get(), header.data(), header.size(), MSG_PEEK | MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&from), &size);
    if (got < 0) {
      return;
    }
    if (gige_protocol::parse_packet_header(std::span(header).first(static_cast<std::size_t>(got)))) {
      reachable = set_source(ntohs(from.sin_port));
    } else {
      recv(get(), header.data(), header.size(), MSG_DONTWAIT);
    }
  }
}

void stream_socket::mute(bool yes) {
  if (yes) {
    drop_everything(connected_);
    discard();
  } else {
    set_option(get(), SO_DETACH_FILTER, 0);
  }
}

void stream_socket::discard() const {
  // The limit ends the loop even if packets arrive as fast as they are dropped.
  constexpr std::uint32_t leastPacket = 256;  // bytes of the buffer, at least
  std::uint8_t none = 0;
  for (std::uint32_t most = bufferBytes_ / leastPacket; most > 0; --most) {
    if (recv(get(), &none, 0, MSG_DONTWAIT) < 0 && errno != ECONNREFUSED) {
      return;
    }
  }
}

void stream_socket::open_firewall() const {
  if (source_ != 0) {
    send(get(), nullptr, 0, MSG_DONTWAIT);  // unanswered, and it may get lost
  }
}

stream_socket::buffer_state stream_socket::buffer() const {
  const auto figures = memory_of(get());
  return {static_cast<double>(figures[SK_MEMINFO_RMEM_ALLOC]) / figures[SK_MEMINFO_RCVBUF],
          figures[SK_MEMINFO_DROPS]};
}

std::uint32_t stream_socket::foreign() const {
  return memory_of(sentry_.get())[SK_MEMINFO_DROPS];
}

steady_clock::time_point stream_socket::last_arrival() const {
  const auto now = steady_clock::now();
  timespec arrival{};
  timespec wallNow{};
  if (ioctl(get(), SIOCGSTAMPNS, &arrival) != 0 || clock_gettime(CLOCK_REALTIME, &wallNow) != 0) {
    return now;
  }
  const nanoseconds age =
      seconds(wallNow.tv_sec - arrival.tv_sec) + nanoseconds(wallNow.tv_nsec - arrival.tv_nsec);
  return now - std::max(age, nanoseconds(0));
}

}  // namespace gige
