#include "platform/gige/control/force_ip.h"

#include <chrono>
#include <cstdint>
#include <optional>

#include "platform/gige/control/addresses.h"
#include "platform/gige/control/inquiry.h"

namespace gige {
namespace {

using std::chrono::milliseconds;
namespace protocol = gige_protocol;

constexpr milliseconds patienceForAll(2000);
constexpr milliseconds patienceForOne(200);  // then both are sent again

// What the camera has answered so far.
struct progress {
  const protocol::forced_ip& wanted;
  bool acknowledged = false;
  std::optional<std::uint32_t> address{};  // of its latest answer

  void take(const inquiry::answer& answer) {
    if (answer.content.code == protocol::acknowledge_code::force_ip) {
      check(answer.content.result);
      acknowledged = true;
    } else if (answer.content.code == protocol::acknowledge_code::discovery) {
      const auto record = protocol::parse_discovery(answer.content.payload);
      if (record && record->mac == wanted.mac && record->ip == answer.from) {
        address = record->ip;
      }
    }
  }
  // With an address of 0 the camera need not acknowledge, and its new address is not known before.
  bool done() const { return wanted.ip == 0 ? acknowledged || address.has_value() : address == wanted.ip; }

  std::string text() const {
    if (address) {
      return "keeps its address " + address_text(*address);
    }
    return acknowledged ? "acknowledges it, and is not found at its address" : "does not answer";
  }

 private:
  void check(protocol::status result) const {
    if (result != protocol::status::success) {
      throw refused("camera " + mac_text(wanted.mac) + " refuses the address " + address_text(wanted.ip) +
                        ": " + protocol::text_of(result),
                    result);
    }
  }
};

}  // namespace

void set_address(const protocol::forced_ip& wanted, const std::vector<std::string>& interfaces) {
  const inquiry networks(interfaces, {});
  const auto forceIp = protocol::make_force_ip(networks.id(), wanted, true);
  const auto discovery = protocol::make_discovery(networks.id(), true);
  progress reached{.wanted = wanted};
  const auto end = inquiry::clock::now() + patienceForAll;
  while (!reached.done() && inquiry::clock::now() < end) {
    if (!reached.acknowledged) {
      networks.send(forceIp);
    }
    networks.send(discovery);
    networks.gather(inquiry::clock::now() + patienceForOne, [&](const inquiry::answer& answer) {
      reached.take(answer);
      return !reached.done();
    });
  }
  if (!reached.done()) {
    throw not_answered("camera " + mac_text(wanted.mac) + ", asked to take the address " +
                       address_text(wanted.ip) + ", " + reached.text());
  }
}

}  // namespace gige
