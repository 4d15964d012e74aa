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

// The most cameras that a search keeps, however many answer. Networks carry some hundred. Cameras with a
// preferred serial number are kept beside these, but only `mostOfOneSerial` of each number: more are forged.
constexpr std::size_t mostCameras = 256;
constexpr std::size_t mostOfOneSerial = 4;

// Where to search, and for which cameras.
struct search {
  // Names of interfaces to search by broadcast, "eth1". Empty: all of them, or none when there are addresses.
  std::vector<std::string> interfaces{};
  std::vector<std::uint32_t> addresses{};  // cameras to ask by unicast, also beyond a router
  std::vector<std::string> preferred{};    // serial numbers, which come first in the result in this order
  // The longest time that the search takes.
  std::chrono::milliseconds patience{100};
};

struct found_camera {
  gige_protocol::discovery_record record;  // texts without control characters
  std::string interfaceName;               // the interface that received the answer
  std::uint32_t ownAddress = 0;            // our address on that interface, to send commands from
  std::string unreachable;                 // why it cannot be opened as it is; empty: it can
};

// Sends DISCOVERY from every address of every interface by broadcast, and to the addresses; halfway through
// the patience, again. Ends early, a few milliseconds after all named cameras (by address or preferred serial
// number) have answered. In these milliseconds the other cameras of the network answer.
//
// An answer is dropped when it has another request id, or a record with another address than its sender's. A
// camera that answers several times counts once, with an interface that reaches it if there is one. Preferred
// cameras come first, then the others by address.
//
// Logs (level 2) unreachable cameras, missing interfaces, and, when no camera answered, the networks that
// were searched. Several threads may search at the same time.
std::vector<found_camera> find_cameras(const search& what);

}  // namespace gige

#endif
