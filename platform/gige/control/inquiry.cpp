#include "platform/gige/control/inquiry.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

#include "core/log.h"
#include "platform/gige/control/request_id.h"

namespace gige {
namespace {

using std::chrono::milliseconds;
namespace protocol = gige_protocol;

// The most datagrams that are read from one socket before the next socket.
constexpr int mostInARow = 64;

bool is_direct(const inquiry::network& one) {
  return one.own.mask == 0;
}

// The limited broadcast and that of the subnet, since some cameras and routers take only one of them. A
// subnet of one or two addresses has no broadcast address.
std::vector<std::uint32_t> broadcast_addresses(const interface_address& own) {
  constexpr std::uint32_t hostBitsOfTwo = 1;
  std::vector<std::uint32_t> all{INADDR_BROADCAST};
  if (~own.mask > hostBitsOfTwo) {
    all.push_back(own.address | ~own.mask);
  }
  return all;
}

descriptor open_socket() {
  descriptor made(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  // A failure shows when sending.
  setsockopt(made.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  return made;
}

}  // namespace

std::string text_of(const inquiry::network& one) {
  return is_direct(one) ? address_text(one.destinations.front()) + " directly"
                        : one.own.name + " " + address_text(one.own.address);
}

inquiry::inquiry(const std::vector<std::string>& interfaces, const std::vector<std::uint32_t>& addresses)
    : id_(random_request_id()) {
  if (!interfaces.empty() || addresses.empty()) {
    add_interfaces(interfaces);
  }
  for (const std::uint32_t address : addresses) {
    add_camera(address);
  }
}

void inquiry::add_interfaces(const std::vector<std::string>& wanted) {
  const auto all = interface_addresses();
  for (const std::string& name : wanted) {
    if (std::ranges::find(all, name, &interface_address::name) == all.end()) {
      LOG(2, "fail: no interface '%s' is up with an IPv4 address", name.c_str());
    }
  }
  for (const interface_address& each : all) {
    if (wanted.empty() || std::ranges::find(wanted, each.name) != wanted.end()) {
      networks_.push_back({.own = each, .destinations = broadcast_addresses(each), .socket = open_socket()});
    }
  }
}

// A connected socket has the own address that the routing table chooses.
void inquiry::add_camera(std::uint32_t address) {
  descriptor made = open_socket();
  const sockaddr_in camera = internet_address(address, protocol::controlPort);
  if (connect(made.get(), reinterpret_cast<const sockaddr*>(&camera), sizeof camera) != 0) {
    LOG(2, "fail: no way to %s (reason:%s)", address_text(address).c_str(), std::strerror(errno));
    return;
  }
  interface_address own;
  own.address = address_of(bound_address(made.get()));
  const auto all = interface_addresses();
  const auto known = std::ranges::find(all, own.address, &interface_address::address);
  own.name = known == all.end() ? "" : known->name;
  networks_.push_back({.own = own, .destinations = {address}, .socket = std::move(made)});
}

void inquiry::send(const protocol::message& command) const {
  for (const network& each : networks_) {
    for (const std::uint32_t to : each.destinations) {
      const bool sent = is_direct(each)
                            ? ::send(each.socket.get(), command.data(), command.size(), MSG_NOSIGNAL) >= 0
                            : send_from(each.socket.get(), each.own,
                                        internet_address(to, protocol::controlPort), command.view());
      if (!sent) {
        LOG(2, "fail: asking %s from %s (reason:%s)", address_text(to).c_str(), text_of(each).c_str(),
            std::strerror(errno));
      }
    }
  }
}

void inquiry::gather(clock::time_point until, const std::function<bool(const answer&)>& take) const {
  std::vector<pollfd> waiting;
  for (const network& each : networks_) {
    waiting.push_back({each.socket.get(), POLLIN, 0});
  }
  for (auto now = clock::now(); now < until; now = clock::now()) {
    const auto left = std::chrono::ceil<milliseconds>(until - now).count();
    poll(waiting.data(), waiting.size(), static_cast<int>(left));
    for (std::size_t at = 0; at < networks_.size(); ++at) {
      if (waiting[at].revents != 0 && !take_from(networks_[at], take)) {
        return;
      }
    }
  }
}

// False when `take` returned false.
bool inquiry::take_from(const network& one, const std::function<bool(const answer&)>& take) const {
  for (int taken = 0; taken < mostInARow; ++taken) {
    std::array<std::uint8_t, protocol::largestMessage + 1> bytes{};  // one more shows what is too large
    sockaddr_in from{};
    socklen_t fromSize = sizeof from;
    const ssize_t size = recvfrom(one.socket.get(), bytes.data(), bytes.size(), 0,
                                  reinterpret_cast<sockaddr*>(&from), &fromSize);
    if (size < 0) {
      return true;
    }
    const auto came = protocol::parse_acknowledge(std::span(bytes).first(static_cast<std::size_t>(size)));
    const bool fromCamera = from.sin_port == htons(protocol::controlPort);
    if (fromCamera && came && came->id == id_ &&
        !take({.content = *came, .from = address_of(from), .over = one})) {
      return false;
    }
  }
  return true;
}

}  // namespace gige
