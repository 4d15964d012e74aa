#include "host/web/listener.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace host {
namespace {

constexpr int kWaitingMax = 16;  // connections that the kernel holds until they are accepted

descriptor try_listen(const addrinfo& at) {
  descriptor listener(socket(at.ai_family, at.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, at.ai_protocol));
  const int yes = 1;
  const bool isListening =
      listener.is_open() && setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) == 0 &&
      bind(listener.get(), at.ai_addr, at.ai_addrlen) == 0 && listen(listener.get(), kWaitingMax) == 0;
  return isListening ? std::move(listener) : descriptor();
}

}  // namespace

descriptor listen_at(const endpoint& where) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const int unknown = getaddrinfo(where.address.c_str(), std::to_string(where.port).c_str(), &hints, &found);
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> all(unknown == 0 ? found : nullptr, freeaddrinfo);
  int error = 0;
  for (const addrinfo* at = all.get(); at != nullptr; at = at->ai_next) {
    if (descriptor listener = try_listen(*at); listener.is_open()) {
      return listener;
    }
    error = errno;
  }
  throw std::runtime_error(fmt::format("nothing can be served at {} port {}: {}", where.address, where.port,
                                       unknown != 0 ? gai_strerror(unknown) : std::strerror(error)));
}

int port_of(const descriptor& listener) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                                             : reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

}  // namespace host
