// IPv4 and MAC addresses, and the network interfaces of this machine. All IPv4 addresses of this folder are
// numbers in host byte order: 192.168.1.2 is 0xc0a80102.
#ifndef PLATFORM_GIGE_CONTROL_ADDRESSES_H
#define PLATFORM_GIGE_CONTROL_ADDRESSES_H

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/gige_protocol/discovery.h"

namespace gige {

// "192.168.1.2", and the reverse, which returns nothing for any other text.
std::string address_text(std::uint32_t address);
std::optional<std::uint32_t> parse_address(const std::string& text);

// "00:11:22:aa:bb:cc".
std::string mac_text(const gige_protocol::mac_address& mac);

// From and to the structure of socket calls.
sockaddr_in internet_address(std::uint32_t address, std::uint16_t port);
std::uint32_t address_of(const sockaddr_in& from);

// The local address of a UDP socket; all zero when it is not bound.
sockaddr_in bound_address(int socket);

// One IPv4 address of a network interface that is up. An interface may have several.
struct interface_address {
  std::string name;  // of the interface: "eth1", also for a further address with the label "eth1:2"
  int index = 0;     // of the interface, see if_nametoindex(3)
  std::uint32_t address = 0;
  std::uint32_t mask = 0;

  bool reaches(std::uint32_t other) const { return ((address ^ other) & mask) == 0; }
};

// All of them, in the system's order. None when the system call fails, with a log line.
std::vector<interface_address> interface_addresses();

// Sends a datagram from that address through its interface (index 0: the routing table chooses one). The
// socket is not bound to the address, because a bound socket would not receive answers by broadcast. False,
// with errno, when the system call fails.
bool send_from(int socket, const interface_address& own, sockaddr_in to, std::span<const std::uint8_t> bytes);

}  // namespace gige

#endif
