#include "platform/gige/stream/sockets.h"

#include <linux/filter.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

#include "core/log.h"
#include "platform/gige/control/addresses.h"

namespace gige {

void raise_socket_error(const char* what) {
  const std::error_code reason(errno, std::generic_category());
  LOG(1, "fail: image stream, %s (reason:%s)", what, reason.message().c_str());
  throw std::system_error(reason, what);
}

descriptor bind_udp(std::uint32_t address, std::uint16_t port, bool shared) {
  descriptor made(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) {
    raise_socket_error("making a UDP socket");
  }
  set_shared(made, shared);
  const sockaddr_in own = internet_address(address, port);
  if (bind(made.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
    raise_socket_error("binding a UDP socket to an address of this machine");
  }
  return made;
}

void set_shared(const descriptor& socket, bool yes) {
  const int value = yes ? 1 : 0;
  setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &value, sizeof value);
}

bool connect_udp(const descriptor& socket, std::uint32_t address, std::uint16_t port) {
  const sockaddr_in peer = internet_address(address, port);
  return connect(socket.get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
}

void drop_everything(const descriptor& socket) {
  sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);
  const sock_fprog filter{1, &nothing};
  setsockopt(socket.get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

}  // namespace gige
