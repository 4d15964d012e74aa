// Commands to all cameras of the networks at once, and their answers: for DISCOVERY and FORCEIP.
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

// Has a socket for each of our addresses, which sends by broadcast, and one for each camera that is addressed
// directly. Each socket has its own port and receive buffer, so that a flood of answers to one leaves room in
// the others. Used by one thread at a time.
class inquiry {
 public:
  using clock = std::chrono::steady_clock;

  // A socket and its destinations.
  struct network {
    interface_address own;  // with a mask of 0 when the destination is one camera
    std::vector<std::uint32_t> destinations;
    descriptor socket;
  };
  struct answer {
    const gige_protocol::acknowledge& content;
    std::uint32_t from;  // address of the sender
    const network& over;
  };

  // Broadcasts over those interfaces (none: over all, if there are no addresses), and sends to those
  // addresses. Leaves out what cannot be reached, with a log line (level 2).
  inquiry(const std::vector<std::string>& interfaces, const std::vector<std::uint32_t>& addresses);

  // The request id of all commands, which is random.
  std::uint16_t id() const { return id_; }
  const std::vector<network>& networks() const { return networks_; }

  // Sends the command to all destinations.
  void send(const gige_protocol::message& command) const;
  // Calls `take` for each acknowledge with our id until it returns false or the time has come.
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
