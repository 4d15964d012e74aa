#include "platform/aravis/discovery.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "core/log.h"
#include "platform/aravis/descriptor.h"
#include "platform/aravis/gvcp.h"
#include "platform/aravis/sockets.h"

namespace gige {
namespace {

// A socket that asks one interface, or, for the addresses, whichever the routes lead through.
struct asking {
  std::string interface;
  std::uint32_t address = 0;  // ours on the interface
  std::uint32_t mask = 0;
  std::vector<std::uint32_t> asked;
  descriptor socket;
};

std::uint32_t host_address(const sockaddr* from) {
  sockaddr_in internet{};
  std::memcpy(&internet, from, sizeof internet);
  return ntohl(internet.sin_addr.s_addr);
}

descriptor open_socket() {
  return descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// Bound to the interface, not to its address: a camera with an address of another network answers by
// broadcast, and is worth a line in the log.
std::optional<descriptor> socket_on(const std::string& interface) {
  descriptor opened = open_socket();
  const int on = 1;
  const bool usable = opened && setsockopt(opened.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) == 0 &&
                      setsockopt(opened.get(), SOL_SOCKET, SO_BINDTODEVICE, interface.c_str(),
                                 static_cast<socklen_t>(interface.size())) == 0;
  if (!usable) {
    LOG(2, "fail: search socket (interface:%s, reason:%s)", interface.c_str(), std::strerror(errno));
    return std::nullopt;
  }
  return opened;
}

bool wanted(const environment& where, const std::string& interface) {
  const auto& names = where.interfaces;
  return names.empty() ? where.addresses.empty()
                       : std::find(names.begin(), names.end(), interface) != names.end();
}

// One for each interface that is up and has an IPv4 address, of those that are to be searched.
std::vector<asking> interfaces_to_ask(const environment& where) {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) {
    LOG(1, "fail: getifaddrs (reason:%s)", std::strerror(errno));
    return {};
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
  std::vector<asking> all;
  for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
    const std::string label = each->ifa_name;  // "eth0:1" of a further address
    const std::string name = label.substr(0, label.find(':'));
    const bool internet = each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET;
    const bool known =
        std::any_of(all.begin(), all.end(), [&](const asking& other) { return other.interface == name; });
    if (!internet || known || (each->ifa_flags & IFF_UP) == 0 || !wanted(where, name)) {
      continue;
    }
    if (auto opened = socket_on(name)) {
      all.push_back({name,
                     host_address(each->ifa_addr),
                     host_address(each->ifa_netmask),
                     {INADDR_BROADCAST},
                     std::move(*opened)});
    }
  }
  return all;
}

std::vector<asking> everybody_to_ask(const environment& where) {
  std::vector<asking> all = interfaces_to_ask(where);
  for (const std::string& name : where.interfaces) {
    if (std::none_of(all.begin(), all.end(), [&](const auto& each) { return each.interface == name; })) {
      LOG(2, "fail: GIGE_INTERFACES: no interface '%s' is up with an IPv4 address", name.c_str());
    }
  }
  if (!where.addresses.empty()) {
    all.push_back({"", 0, 0, where.addresses, open_socket()});
  }
  return all;
}

std::string described(const asking& one) {
  std::string text =
      one.interface.empty() ? "asked directly:" : one.interface + " " + address_text(one.address);
  for (const std::uint32_t address : one.asked) {
    text += one.interface.empty() ? " " + address_text(address) : "";
  }
  return text;
}

void ask(const asking& one) {
  const auto command = gvcp::discovery_command();
  for (const std::uint32_t address : one.asked) {
    const sockaddr_in to = internet_address(address, gvcp::port);
    if (sendto(one.socket.get(), command.data(), command.size(), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof to) < 0) {
      LOG(2, "fail: search (%s, reason:%s)", described(one).c_str(), std::strerror(errno));
    }
  }
}

template <std::size_t size>
void copy_text(char (&to)[size], std::span<const std::uint8_t> data, std::size_t offset, std::size_t length) {
  const auto* const text = reinterpret_cast<const char*>(data.data() + offset);
  std::memcpy(to, text, strnlen(text, std::min(length, size - 1)));
}

GEV_DEVICE_INTERFACE record_of(std::span<const std::uint8_t> data) {
  GEV_DEVICE_INTERFACE record{};
  record.macHigh = gvcp::number_at(data, 0x08) & 0xffffU;
  record.macLow = gvcp::number_at(data, 0x0c);
  record.ipAddr = gvcp::number_at(data, 0x24);
  copy_text(record.manufacturer, data, 0x48, 32);
  copy_text(record.model, data, 0x68, 32);
  copy_text(record.version, data, 0x88, 32);
  copy_text(record.serial, data, 0xd8, 16);
  copy_text(record.username, data, 0xe8, 16);
  return record;
}

// False when nothing is left to be received.
bool receive(const asking& from, std::vector<found_camera>& found) {
  std::array<std::uint8_t, gvcp::largestMessage> message{};
  const ssize_t size = recv(from.socket.get(), message.data(), message.size(), 0);
  if (size < 0) {
    return false;
  }
  const auto answer = gvcp::parse(std::span(message).first(static_cast<std::size_t>(size)));
  if (!answer || answer->what != gvcp::answer::kind::discovery || answer->status != 0 ||
      answer->data.size() < gvcp::discovery_size) {
    return true;
  }
  const found_camera camera{record_of(answer->data), from.address};
  const bool known = std::any_of(found.begin(), found.end(), [&](const found_camera& other) {
    return other.record.ipAddr == camera.record.ipAddr && other.record.macLow == camera.record.macLow &&
           other.record.macHigh == camera.record.macHigh;
  });
  if (!known) {
    found.push_back(camera);
    if (((camera.record.ipAddr ^ from.address) & from.mask) != 0) {
      LOG(2, "fail: camera %s has the address %s, which is not in the network of %s; give it another one",
          camera.record.serial, address_text(camera.record.ipAddr).c_str(), described(from).c_str());
    }
  }
  return true;
}

void gather(const std::vector<asking>& all, const environment& where, std::vector<found_camera>& found) {
  std::vector<pollfd> waiting;
  waiting.reserve(all.size());
  for (const asking& each : all) {
    waiting.push_back({each.socket.get(), POLLIN, 0});
  }
  // Asked one by one, everybody who can answer is known.
  const bool knowsAll = where.interfaces.empty() && !where.addresses.empty();
  const auto complete = [&] { return knowsAll && found.size() >= where.addresses.size(); };
  while (!complete() && poll(waiting.data(), waiting.size(), static_cast<int>(where.discoveryMs)) > 0) {
    for (std::size_t at = 0; at < all.size(); ++at) {
      while (waiting[at].revents != 0 && receive(all[at], found)) {
      }
    }
  }
}

void explain_none(const std::vector<asking>& all, const environment& where) {
  if (all.empty()) {
    LOG(2, "fail: no network to search, no interface is up with an IPv4 address");
  }
  for (const asking& each : all) {
    LOG(2, "fail: no camera answered within %u ms, asked twice (%s)", where.discoveryMs,
        described(each).c_str());
  }
}

}  // namespace

std::vector<found_camera> find_cameras(const environment& where) {
  const std::vector<asking> all = everybody_to_ask(where);
  std::vector<found_camera> found;
  for (int attempt = 0; attempt < 2 && found.empty() && !all.empty(); ++attempt) {
    std::for_each(all.begin(), all.end(), ask);
    gather(all, where, found);
  }
  if (found.empty()) {
    explain_none(all, where);
  }
  std::sort(found.begin(), found.end(),
            [](const auto& one, const auto& other) { return one.record.ipAddr < other.record.ipAddr; });
  return found;
}

}  // namespace gige
