// Sockets of an image stream. Addresses are IPv4 in host byte order.
#ifndef PLATFORM_GIGE_STREAM_SOCKETS_H
#define PLATFORM_GIGE_STREAM_SOCKETS_H

#include <cstdint>

#include "platform/gige/control/descriptor.h"

namespace gige {

// For a system call that has just failed: logs `what` with the text of errno, and raises std::system_error.
[[noreturn]] void raise_socket_error(const char* what);

// A non-blocking socket that is bound to that port; 0: to any free one. Several sockets may be bound to one
// port while all of them are shared. Raises std::system_error.
descriptor bind_udp(std::uint32_t address, std::uint16_t port, bool shared);
void set_shared(const descriptor& socket, bool yes);

// Restricts the socket to packets of that address and port; port 0: of all its ports. False when there is no
// route.
bool connect_udp(const descriptor& socket, std::uint32_t address, std::uint16_t port);

// Has the system drop and count every packet that arrives, until another filter is attached.
void drop_everything(const descriptor& socket);

}  // namespace gige

#endif
