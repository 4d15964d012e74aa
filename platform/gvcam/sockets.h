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

// All of this machine, in the system's order.
std::vector<local_address> local_addresses();

// Dotted, and back; the way back gives 0 for what is no address.
std::string text_of(std::uint32_t ip);
std::uint32_t ip_from(const std::string& text);

class udp_socket {
 public:
  // Bound to the address; port 0: to any free port. A shared one may be bound by several sockets at once, as
  // is needed to hear broadcasts, and takes what comes in by that interface only. Raises std::system_error.
  explicit udp_socket(const endpoint& bound);
  udp_socket(const endpoint& bound, const std::string& sharedOnInterface);
  ~udp_socket();
  udp_socket(udp_socket&& other) noexcept;
  udp_socket& operator=(udp_socket&& other) noexcept;
  udp_socket(const udp_socket&) = delete;
  udp_socket& operator=(const udp_socket&) = delete;

  int descriptor() const { return descriptor_; }
  std::uint16_t port() const;

  // What has come, if anything: its size and sender. What is larger than `room` is cut. Never waits.
  struct arrival {
    std::size_t size = 0;
    endpoint from;
  };
  std::optional<arrival> receive(std::span<std::uint8_t> room) const;

  // Sends; what cannot be sent is as lost as what the network drops. Any thread.
  void send(const endpoint& to, gige_protocol::byte_view bytes) const;
  void send(const endpoint& to, std::span<const frame_packet> packets) const;

  // Whether packets that are too large for the path are sent in fragments, or dropped.
  void allow_fragments(bool allowed) const;

 private:
  int descriptor_;
};

}  // namespace gvcam

#endif
