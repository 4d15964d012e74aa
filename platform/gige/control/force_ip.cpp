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
constexpr milliseconds patienceForOne(200);  // then it is asked again

// What was heard of the camera so far.
struct progress {
  const protocol::forced_ip& wanted;
  bool acknowledged = false;
  std::optional<std::uint32_t> address{};  // that it answered from last

  void take(const inquiry::answer& came) {
    if (came.content.code == protocol::acknowledge_code::force_ip) {
      check(came.content.result);
      acknowledged = true;
    } else if (came.content.code == protocol::acknowledge_code::discovery) {
      const auto record = protocol::parse_discovery(came.content.payload);
      if (record && record->mac == wanted.mac && record->ip == came.from) {
        address = record->ip;
      }
    }
  }
  // A camera need not acknowledge an address of 0, nor does anybody know which one it takes.
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
  const inquiry asked(interfaces, {});
  const auto order = protocol::make_force_ip(asked.id(), wanted, true);
  const auto question = protocol::make_discovery(asked.id(), true);
  progress so{.wanted = wanted};
  const auto end = inquiry::clock::now() + patienceForAll;
  while (!so.done() && inquiry::clock::now() < end) {
    if (!so.acknowledged) {
      asked.send(order);
    }
    asked.send(question);
    asked.gather(inquiry::clock::now() + patienceForOne, [&](const inquiry::answer& came) {
      so.take(came);
      return !so.done();
    });
  }
  if (!so.done()) {
    throw not_answered("camera " + mac_text(wanted.mac) + ", asked to take the address " +
                       address_text(wanted.ip) + ", " + so.text());
  }
}

}  // namespace gige
