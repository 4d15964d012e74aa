// Addresses, and what the system grants to the receiver of an image stream.
#ifndef PLATFORM_ARAVIS_SOCKETS_H
#define PLATFORM_ARAVIS_SOCKETS_H

#include <netinet/in.h>

#include <cstdint>

namespace gige {

// IPv4, address in host byte order.
sockaddr_in internet_address(std::uint32_t address, std::uint16_t port);

// Whether this process may receive on a packet socket, which needs CAP_NET_RAW.
bool packet_sockets_allowed();

// Gives our UDP socket with that port a receive buffer of so many bytes. Returns how many it got: the system
// sets a limit, net.core.rmem_max; 0 when there is no such socket. Aravis itself does this with the first
// frame only, which is lost by then.
std::uint32_t enlarge_receive_buffer(std::uint16_t port, std::uint32_t bytes);

}  // namespace gige

#endif
