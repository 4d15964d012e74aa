// A client of the web server that does what no well-behaved one does: stops reading, leaves, sends half a
// request.
#ifndef TESTS_HOST_WEB_CLIENT_H
#define TESTS_HOST_WEB_CLIENT_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <string>

#include "host/config/descriptor.h"

namespace tests {

class client {
 public:
  // Client number 2 comes from 127.0.0.2: the server counts it as another one.
  explicit client(int port, std::uint32_t number = 1)
      : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + number - 1);
    EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval patience{30, 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  void send(const std::string& text) const { ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL); }
  // What comes until the last of it is `end`, or without one until the connection ends.
  std::string read(const std::string& end = "") const {
    std::string all;
    std::array<char, 4096> part{};
    for (ssize_t got = 1; got > 0 && (end.empty() || !all.ends_with(end));) {
      got = recv(socket_.get(), part.data(), part.size(), 0);
      all.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    }
    return all;
  }

 private:
  host::descriptor socket_;
};

}  // namespace tests

#endif
