#include "platform/gige/control/addresses.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "core/log.h"

namespace gige {
namespace {

std::uint32_t address_of(const sockaddr* from) {
  sockaddr_in internet{};
  std::memcpy(&internet, from, sizeof internet);
  return gige::address_of(internet);
}

}  // namespace

std::string address_text(std::uint32_t address) {
  const in_addr network{htonl(address)};
  std::array<char, INET_ADDRSTRLEN> text{};
  return inet_ntop(AF_INET, &network, text.data(), text.size());
}

std::optional<std::uint32_t> parse_address(const std::string& text) {
  in_addr network{};
  return inet_pton(AF_INET, text.c_str(), &network) == 1 ? std::optional(ntohl(network.s_addr))
                                                         : std::nullopt;
}

std::string mac_text(const gige_protocol::mac_address& mac) {
  std::array<char, sizeof "00:11:22:33:44:55"> text{};
  std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text.data();
}

sockaddr_in internet_address(std::uint32_t address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  result.sin_addr.s_addr = htonl(address);
  return result;
}

std::uint32_t address_of(const sockaddr_in& from) {
  return ntohl(from.sin_addr.s_addr);
}

sockaddr_in bound_address(int socket) {
  sockaddr_in own{};
  socklen_t size = sizeof own;
  return getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size) == 0 ? own : sockaddr_in{};
}

std::vector<interface_address> interface_addresses() {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) {
    LOG(1, "fail: getifaddrs (reason:%s)", std::strerror(errno));
    return {};
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
  std::vector<interface_address> all;
  for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
    const bool internet = each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET;
    if (!internet || each->ifa_netmask == nullptr || (each->ifa_flags & IFF_UP) == 0) {
      continue;
    }
    const std::string label = each->ifa_name;
    const std::string name = label.substr(0, label.find(':'));
    all.push_back({.name = name,
                   .index = static_cast<int>(if_nametoindex(name.c_str())),
                   .address = address_of(each->ifa_addr),
                   .mask = address_of(each->ifa_netmask)});
  }
  return all;
}

bool send_from(int socket, const interface_address& own, sockaddr_in to,
               std::span<const std::uint8_t> bytes) {
  iovec content{const_cast<std::uint8_t*>(bytes.data()), bytes.size()};  // sendmsg only reads
  alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof(in_pktinfo))> control{};
  msghdr message{};
  message.msg_name = &to;
  message.msg_namelen = sizeof to;
  message.msg_iov = &content;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const head = CMSG_FIRSTHDR(&message);
  head->cmsg_level = IPPROTO_IP;
  head->cmsg_type = IP_PKTINFO;
  head->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
  const in_pktinfo route{
      .ipi_ifindex = own.index, .ipi_spec_dst = {htonl(own.address)}, .ipi_addr = {INADDR_ANY}};
  std::memcpy(CMSG_DATA(head), &route, sizeof route);
  return sendmsg(socket, &message, MSG_NOSIGNAL) >= 0;
}

}  // namespace gige
