#include "platform/aravis/gvcp_client.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <span>

#include "platform/aravis/gvcp.h"
#include "platform/aravis/sockets.h"

namespace gige {

gvcp_client::gvcp_client(std::uint32_t ownAddress, std::uint32_t cameraAddress)
    : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  const sockaddr_in own = internet_address(ownAddress, 0);
  const sockaddr_in camera = internet_address(cameraAddress, gvcp::port);
  // Without a socket, or with one that leads nowhere, the camera is silent.
  if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0) {
    static_cast<void>(connect(socket_.get(), reinterpret_cast<const sockaddr*>(&camera), sizeof camera));
  }
}

std::uint32_t gvcp_client::own_address() const {
  sockaddr_in own{};
  socklen_t size = sizeof own;
  const bool known = getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&own), &size) == 0;
  return known ? ntohl(own.sin_addr.s_addr) : 0;
}

gvcp_client::answer gvcp_client::read(std::uint32_t registerAddress, std::chrono::milliseconds patience,
                                      int attempts) {
  answer got;
  for (int attempt = 0; attempt < attempts && got.what == outcome::silent; ++attempt) {
    lastId_ = static_cast<std::uint16_t>(std::max(1, (lastId_ + 1) & 0xffff));
    const auto command = gvcp::read_command(registerAddress, lastId_);
    static_cast<void>(send(socket_.get(), command.data(), command.size(), 0));
    got = await(lastId_, patience);
  }
  return got;
}

gvcp_client::answer gvcp_client::await(std::uint16_t id, std::chrono::milliseconds patience) {
  using clock = std::chrono::steady_clock;
  const auto deadline = clock::now() + patience;
  for (auto left = patience; left.count() >= 0;
       left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now())) {
    pollfd waiting{socket_.get(), POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
      break;
    }
    std::array<std::uint8_t, gvcp::largestMessage> message{};
    const ssize_t size = recv(socket_.get(), message.data(), message.size(), 0);
    const auto got = gvcp::parse(std::span(message).first(size > 0 ? static_cast<std::size_t>(size) : 0));
    if (!got || got->id != id || got->what == gvcp::answer::kind::pending) {
      if (clock::now() >= deadline) {
        break;
      }
      continue;
    }
    const bool value =
        got->what == gvcp::answer::kind::read && got->status == 0 && got->data.size() >= gvcp::readAnswerSize;
    return value ? answer{outcome::value, gvcp::number_at(got->data, 4)} : answer{outcome::refused, 0};
  }
  return {};
}

}  // namespace gige
