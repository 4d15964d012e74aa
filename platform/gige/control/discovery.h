// Finding cameras.
#ifndef PLATFORM_GIGE_CONTROL_DISCOVERY_H
#define PLATFORM_GIGE_CONTROL_DISCOVERY_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/gige_protocol/discovery.h"

namespace gige {

// At most so many cameras are kept of a search, however many answer: some hundred are the most that a network
// carries. Those with a preferred serial number do not count, but of each number only `mostOfOneSerial` are
// kept: more are forged.
constexpr std::size_t mostCameras = 256;
constexpr std::size_t mostOfOneSerial = 4;

// Where to search, and for whom.
struct search {
  // Names of interfaces, "eth1". None: all, or, with addresses, only those.
  std::vector<std::string> interfaces{};
  std::vector<std::uint32_t> addresses{};  // cameras that are asked directly, also beyond a router
  std::vector<std::string> preferred{};    // serial numbers that come first in the result, in this order
  // A search takes no longer than this, whatever answers.
  std::chrono::milliseconds patience{100};
};

struct found_camera {
  gige_protocol::discovery_record record;  // its texts are clean
  std::string interfaceName;               // over which it answered
  std::uint32_t ownAddress = 0;            // ours, on that interface: where to send commands from
  std::string unreachable;                 // why it cannot be opened as it is, in words; empty: it can
};

// Asks by broadcast from every address of every interface, or asks the addresses, and once more halfway. Ends
// early when all who were named, by address or as preferred, have answered: a few milliseconds later, so that
// the others on the network are heard, too.
//
// An answer to another request, or whose record bears another address than it came from, is no camera. One
// that answers several times counts once, where it is reachable if it is anywhere. Preferred cameras come
// first, then the others by address.
//
// Logs (level 2) cameras that are unreachable, who was asked when none answered, and interfaces that are not
// there. Several threads may search at the same time.
std::vector<found_camera> find_cameras(const search& what);

}  // namespace gige

#endif
