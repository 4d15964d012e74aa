#include "platform/aravis/sockets.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <charconv>
#include <filesystem>
#include <system_error>

#include "platform/aravis/descriptor.h"

namespace gige {
namespace {

bool is_udp_bound_to(int socket, std::uint16_t port) {
  sockaddr_in bound{};
  socklen_t size = sizeof bound;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&bound), &size) != 0 || bound.sin_family != AF_INET ||
      ntohs(bound.sin_port) != port) {
    return false;
  }
  int type = 0;
  size = sizeof type;
  return getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_DGRAM;
}

int number_of(const std::filesystem::path& name) {
  const std::string text = name.filename().string();
  int number = -1;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

sockaddr_in internet_address(std::uint32_t address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  result.sin_addr.s_addr = htonl(address);
  return result;
}

bool packet_sockets_allowed() {
  return static_cast<bool>(descriptor(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)));
}

std::uint32_t enlarge_receive_buffer(std::uint16_t port, std::uint32_t bytes) {
  std::error_code none;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", none)) {
    const int number = number_of(entry.path());
    if (number < 0 || !is_udp_bound_to(number, port)) {
      continue;
    }
    setsockopt(number, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    std::uint32_t granted = 0;
    socklen_t size = sizeof granted;
    getsockopt(number, SOL_SOCKET, SO_RCVBUF, &granted, &size);
    return granted / 2;  // the kernel counts its own needs in
  }
  return 0;
}

}  // namespace gige
