// UDP over IPv4, and the addresses of this machine.
#ifndef PLATFORM_GVCAM_SOCKETS_H
#define PLATFORM_GVCAM_SOCKETS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/gige_protocol/bytes.h"
#include "platform/gvcam/control_server.h"
#include "platform/gvcam/frame.h"

namespace gvcam {

// An address of this machine; numbers as in `endpoint`.
struct local_address {
  std::uint32_t ip = 0;
  std::uint32_t mask = 0;
  std::string interface;
};

// All addresses of this machine, in the order of the system.
std::vector<local_address> local_addresses();

// The dotted text of an address, and the address of a text: 0 for one that is not an address.
std::string text_of(std::uint32_t ip);
std::uint32_t ip_from(const std::string& text);

class udp_socket {
 public:
  // Binds to the address; with port 0 to any free port. A socket that is shared on an interface receives what
  // arrives at that interface, and several such sockets can have the same address; broadcasts need that.
  // Raises std::system_error.
  explicit udp_socket(const endpoint& bound);
  udp_socket(const endpoint& bound, const std::string& sharedOnInterface);
  ~udp_socket();
  udp_socket(udp_socket&& other) noexcept;
  udp_socket& operator=(udp_socket&& other) noexcept;
  udp_socket(const udp_socket&) = delete;
  udp_socket& operator=(const udp_socket&) = delete;

  int descriptor() const { return descriptor_; }
  std::uint16_t port() const;

  // Receives a datagram without waiting: its size and source, or nothing. One that is larger than `room` is
  // cut.
  struct arrival {
    std::size_t size = 0;
    endpoint from;
  };
  std::optional<arrival> receive(std::span<std::uint8_t> room) const;

  // Sends. A datagram that cannot be sent is lost, as if the network had dropped it. Any thread.
  void send(const endpoint& to, gige_protocol::byte_view bytes) const;
  void send(const endpoint& to, std::span<const frame_packet> packets) const;

  // Whether datagrams larger than the path's MTU are sent in fragments. Otherwise they are dropped.
  void allow_fragments(bool allowed) const;

 private:
  int descriptor_;
};

}  // namespace gvcam

#endif
