// IPv4 and MAC addresses, and those that this machine has. All IPv4 addresses of this folder are numbers in
// host byte order: 192.168.1.2 is 0xc0a80102.
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

// "192.168.1.2"; and the way back, nothing for any other text.
std::string address_text(std::uint32_t address);
std::optional<std::uint32_t> parse_address(const std::string& text);

// "00:11:22:aa:bb:cc".
std::string mac_text(const gige_protocol::mac_address& mac);

// As the socket calls take them.
sockaddr_in internet_address(std::uint32_t address, std::uint16_t port);
std::uint32_t address_of(const sockaddr_in& from);

// Where the UDP socket is bound to; all zero when it is not.
sockaddr_in bound_address(int socket);

// One IPv4 address of a network interface that is up. An interface may have several.
struct interface_address {
  std::string name;  // of the interface, "eth1"; the label of a further address, "eth1:2", is not told
  int index = 0;     // of the interface, as the system counts
  std::uint32_t address = 0;
  std::uint32_t mask = 0;

  bool reaches(std::uint32_t other) const { return ((address ^ other) & mask) == 0; }
};

// All of them, in the system's order. When the system does not tell, there are none, and a log line says why.
std::vector<interface_address> interface_addresses();

// Sends a datagram from that address, through its interface (index 0: as the routes lead). The socket need
// not be bound to the address: one that is would not receive what is answered by broadcast. False, with
// errno, when the system refuses.
bool send_from(int socket, const interface_address& own, sockaddr_in to, std::span<const std::uint8_t> bytes);

}  // namespace gige

#endif
