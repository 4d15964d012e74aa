// Sockets of an image stream. Addresses are IPv4 in host byte order.
#ifndef PLATFORM_GIGE_STREAM_SOCKETS_H
#define PLATFORM_GIGE_STREAM_SOCKETS_H

#include <cstdint>

#include "platform/gige/control/descriptor.h"

namespace gige {

// For a call of the system that just failed: says in the log what it was about, and raises std::system_error.
[[noreturn]] void raise_socket_error(const char* what);

// Bound to that port, 0: to any free one. As long as a socket is shared, others that are, too, may be bound
// to the same port. Never blocks. Raises std::system_error.
descriptor bind_udp(std::uint32_t address, std::uint16_t port, bool shared);
void set_shared(const descriptor& socket, bool yes);

// From here on the socket exchanges packets with that port only, 0: with all ports of that address. False
// when no route leads there.
bool connect_udp(const descriptor& socket, std::uint32_t address, std::uint16_t port);

// Has the system drop whatever arrives, and count it as dropped, until another filter is attached.
void drop_everything(const descriptor& socket);

}  // namespace gige

#endif
