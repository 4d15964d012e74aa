// A question to whoever is on the networks, for finding cameras and for giving them addresses.
#ifndef PLATFORM_GIGE_CONTROL_INQUIRY_H
#define PLATFORM_GIGE_CONTROL_INQUIRY_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/gige/control/addresses.h"
#include "platform/gige/control/descriptor.h"
#include "platform/gige_protocol/gvcp.h"

namespace gige {

// Has a socket for each of our addresses, which asks by broadcast, and one for each camera that is asked
// directly. Each has a port of its own, so that a flood of answers to one leaves room in the others. One
// thread at a time.
class inquiry {
 public:
  using clock = std::chrono::steady_clock;

  // One of the sockets, and whom it asks.
  struct network {
    interface_address own;  // its mask is 0 where a camera is asked directly
    std::vector<std::uint32_t> asked;
    descriptor socket;
  };
  struct answer {
    const gige_protocol::acknowledge& content;
    std::uint32_t from;  // the address that it came from
    const network& over;
  };

  // By broadcast over those interfaces (none: all, if no address is given), and directly. What cannot be
  // asked is left out, and the log (level 2) says why.
  inquiry(const std::vector<std::string>& interfaces, const std::vector<std::uint32_t>& addresses);

  // The request id of all that is asked: not to be foreseen.
  std::uint16_t id() const { return id_; }
  const std::vector<network>& networks() const { return networks_; }

  // Sends the command to everybody.
  void send(const gige_protocol::message& command) const;
  // Calls `take` for each acknowledge with our id, until it returns false, or at the latest until then,
  // whatever comes in.
  void gather(clock::time_point until, const std::function<bool(const answer&)>& take) const;

 private:
  void add_interfaces(const std::vector<std::string>& wanted);
  void add_camera(std::uint32_t address);
  bool take_from(const network& one, const std::function<bool(const answer&)>& take) const;

  const std::uint16_t id_;
  std::vector<network> networks_;
};

// "eth1 192.168.0.1", "192.168.7.3 directly".
std::string text_of(const inquiry::network& one);

}  // namespace gige

#endif
