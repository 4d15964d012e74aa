#include "platform/gvcam/sockets.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace gvcam {
namespace {

constexpr std::size_t packetsAtOnce = 64;  // of one system call

sockaddr_in wire_form(const endpoint& from) {
  sockaddr_in made{};
  made.sin_family = AF_INET;
  made.sin_port = htons(from.port);
  made.sin_addr.s_addr = htonl(from.ip);
  return made;
}

std::uint32_t ip_of(const sockaddr* address) {
  return address == nullptr ? 0 : ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr);
}

void set_option(int descriptor, int level, int name, const void* value, socklen_t size) {
  if (setsockopt(descriptor, level, name, value, size) != 0) {
    throw std::system_error(errno, std::generic_category(), "setsockopt");
  }
}

iovec piece(gige_protocol::byte_view bytes) {
  return {const_cast<std::uint8_t*>(bytes.data()), bytes.size()};  // only read from, when it is sent
}

}  // namespace

std::vector<local_address> local_addresses() {
  ifaddrs* list = nullptr;
  std::vector<local_address> found;
  if (getifaddrs(&list) != 0) {
    return found;
  }
  for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET) {
      const std::string label = each->ifa_name;  // further addresses of an interface may be "eth0:1"
      found.push_back({ip_of(each->ifa_addr), ip_of(each->ifa_netmask), label.substr(0, label.find(':'))});
    }
  }
  freeifaddrs(list);
  return found;
}

std::string text_of(std::uint32_t ip) {
  const in_addr address{htonl(ip)};
  std::array<char, INET_ADDRSTRLEN> text{};
  return inet_ntop(AF_INET, &address, text.data(), static_cast<socklen_t>(text.size()));
}

std::uint32_t ip_from(const std::string& text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1 ? ntohl(address.s_addr) : 0;
}

udp_socket::udp_socket(const endpoint& bound) : udp_socket(bound, "") {}

udp_socket::udp_socket(const endpoint& bound, const std::string& sharedOnInterface)
    : descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in address = wire_form(bound);
  const int on = 1;
  try {
    set_option(descriptor_, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    if (!sharedOnInterface.empty()) {
      set_option(descriptor_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
      set_option(descriptor_, SOL_SOCKET, SO_BINDTODEVICE, sharedOnInterface.c_str(),
                 static_cast<socklen_t>(sharedOnInterface.size()));
    }
    if (bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::system_error(errno, std::generic_category(), "bind");
    }
  } catch (...) {
    close(descriptor_);
    throw;
  }
}

udp_socket::~udp_socket() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

udp_socket::udp_socket(udp_socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

udp_socket& udp_socket::operator=(udp_socket&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

std::uint16_t udp_socket::port() const {
  sockaddr_in bound{};
  socklen_t size = sizeof bound;
  getsockname(descriptor_, reinterpret_cast<sockaddr*>(&bound), &size);
  return ntohs(bound.sin_port);
}

std::optional<udp_socket::arrival> udp_socket::receive(std::span<std::uint8_t> room) const {
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t received = recvfrom(descriptor_, room.data(), room.size(), MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&from), &size);
  if (received < 0) {
    return std::nullopt;
  }
  return arrival{static_cast<std::size_t>(received), {ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)}};
}

void udp_socket::send(const endpoint& to, gige_protocol::byte_view bytes) const {
  const sockaddr_in address = wire_form(to);
  (void)sendto(descriptor_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
               sizeof address);
}

void udp_socket::send(const endpoint& to, std::span<const frame_packet> packets) const {
  sockaddr_in address = wire_form(to);
  std::array<std::array<iovec, 3>, packetsAtOnce> pieces;
  std::array<mmsghdr, packetsAtOnce> messages;
  while (!packets.empty()) {
    const std::size_t count = std::min(packets.size(), packetsAtOnce);
    for (std::size_t at = 0; at < count; ++at) {
      pieces[at] = {piece(packets[at].head.view()), piece(packets[at].image), piece(packets[at].chunks)};
      messages[at] = {};
      messages[at].msg_hdr.msg_name = &address;
      messages[at].msg_hdr.msg_namelen = sizeof address;
      messages[at].msg_hdr.msg_iov = pieces[at].data();
      messages[at].msg_hdr.msg_iovlen = pieces[at].size();
    }
    const int sent = sendmmsg(descriptor_, messages.data(), static_cast<unsigned>(count), 0);
    packets =
        packets.subspan(static_cast<std::size_t>(std::max(sent, 1)));  // after an error without the first one
  }
}

void udp_socket::allow_fragments(bool allowed) const {
  const int mode = allowed ? IP_PMTUDISC_DONT : IP_PMTUDISC_DO;
  set_option(descriptor_, IPPROTO_IP, IP_MTU_DISCOVER, &mode, sizeof mode);
}

}  // namespace gvcam
