// A TCP socket that waits for clients.
#ifndef HOST_WEB_LISTENER_H
#define HOST_WEB_LISTENER_H

#include "host/config/descriptor.h"
#include "host/web/web_server.h"

namespace host {

/// A socket that listens and does not block. No other program can listen there as long as it is open.
/// std::runtime_error when the address is not of this machine or its port is taken.
descriptor listen_at(const endpoint& where);

/// The port that the socket got.
int port_of(const descriptor& listener);

}  // namespace host

#endif
