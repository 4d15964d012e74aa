#include "host/check/cameras.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <mediagrabber/property.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

#include "host/config/keys.h"
#include "host/config/text.h"

namespace host {
namespace {

std::uint32_t ipv4(const sockaddr* address) {
  sockaddr_in inet{};
  std::memcpy(&inet, address, sizeof inet);
  return ntohl(inet.sin_addr.s_addr);
}

std::string interface_text(const network_interface& each) {
  return fmt::format("  interface {}: {}, mask {}, {}", each.name, address_text(each.address),
                     address_text(each.mask), each.isUp ? "up" : "DOWN");
}

bool is_reachable(const found_camera& camera, const std::vector<network_interface>& interfaces) {
  return std::any_of(interfaces.begin(), interfaces.end(),
                     [&](const auto& each) { return each.reaches(camera.address); });
}

std::string dash_or(std::string text) {
  return text.empty() ? "-" : text;
}

std::string mac_text(std::uint64_t mac) {
  std::string text;
  for (int byte = 5; byte >= 0; --byte) {
    text += fmt::format("{:02x}{}", mac >> (8 * byte) & 255, byte > 0 ? ":" : "");
  }
  return text;
}

std::vector<std::string> why_none(const std::vector<network_interface>& interfaces) {
  std::vector<std::string> lines = {"no camera answered; what was looked at:"};
  std::transform(interfaces.begin(), interfaces.end(), std::back_inserter(lines), interface_text);
  lines.emplace_back("likely reasons:");
  const bool hasNetwork = std::any_of(interfaces.begin(), interfaces.end(),
                                      [](const auto& each) { return each.isUp && !each.isLoopback; });
  if (!hasNetwork) {
    lines.emplace_back(
        "  - no interface but loopback is up with an IPv4 address: set up the camera's network first");
  }
  lines.emplace_back(
      "  - the camera has no power or no link: look at the lights of its connector and the switch");
  lines.emplace_back("  - a firewall holds back UDP from port 3956, over which cameras answer");
  lines.emplace_back("  - another library is meant: see --framework (sim: simulated cameras)");
  return lines;
}

}  // namespace

std::vector<network_interface> network_interfaces() {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) {
    return {};
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> released(first, freeifaddrs);
  std::vector<network_interface> interfaces;
  for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr != nullptr && each->ifa_netmask != nullptr && each->ifa_addr->sa_family == AF_INET) {
      interfaces.push_back({each->ifa_name, ipv4(each->ifa_addr), ipv4(each->ifa_netmask),
                            (each->ifa_flags & IFF_UP) != 0, (each->ifa_flags & IFF_LOOPBACK) != 0});
    }
  }
  return interfaces;
}

std::vector<network_interface> surroundings(bool isSimulated) {
  return isSimulated ? std::vector<network_interface>{} : network_interfaces();
}

std::string controller_text(std::uint32_t controller) {
  constexpr std::uint32_t kUnnamed = 0xFFFFFFFF;
  return controller == 0 ? "-" : controller == kUnnamed ? "another machine" : address_text(controller);
}

std::string camera_table(const std::vector<found_camera>& cameras) {
  const char* row = "{:<20} {:<24} {:<16} {:<18} {:<16} {:<16} {}\n";
  std::string text =
      fmt::format(fmt::runtime(row), "SERIAL", "MODEL", "ADDRESS", "MAC", "NAME", "CONTROLLED BY", "VERSION");
  for (const found_camera& camera : cameras) {
    text +=
        fmt::format(fmt::runtime(row), printable(camera.serial), printable(camera.model),
                    address_text(camera.address), mac_text(camera.mac), dash_or(printable(camera.userName)),
                    controller_text(camera.controller), printable(camera.version));
  }
  return text;
}

camera_search search_cameras(const camera_library& library, bool isSimulated) {
  // A library that can list a camera first brings every camera within the driver's reach.
  const bool canPrefer = camera_extension(library).is_there();
  return {.found = find_cameras(library),
          .interfaces = surroundings(isSimulated),
          .reach = canPrefer ? std::numeric_limits<std::size_t>::max()
                             : std::size_t{Zavik::Support::MediaGrabber::kCamerasMax}};
}

std::vector<std::string> why_missing(const std::string& serial, const camera_search& search) {
  const auto& [found, interfaces, reachMax] = search;
  if (found.empty()) {
    return why_none(interfaces);
  }
  if (serial.empty()) {
    return {};
  }
  const found_camera* camera = find_camera(found, serial);
  if (camera == nullptr) {
    std::vector<std::string> serials;
    std::transform(found.begin(), found.end(), std::back_inserter(serials),
                   [](const auto& each) { return printable(each.serial); });
    const std::string meant = nearest(serial, serials);
    return {fmt::format("camera '{}' did not answer; others did: {}", serial, fmt::join(serials, ", ")),
            meant.empty()
                ? "  - it has no power or no link, or the serial number is of another camera"
                : fmt::format("  - did you mean '{}'? Serial numbers are compared byte for byte", meant)};
  }
  const auto number = static_cast<std::size_t>(camera - found.data()) + 1;
  if (number > reachMax) {
    return {fmt::format("camera '{}' answers, but as number {}; the driver looks at the first {} only",
                        serial, number, reachMax),
            "  - take cameras that are not used off this network"};
  }
  if (!camera->unreachable.empty()) {
    return {fmt::format("camera '{}' answers from {}, but can't be opened: {}", serial,
                        address_text(camera->address), camera->unreachable)};
  }
  if (!interfaces.empty() && !is_reachable(*camera, interfaces)) {
    std::vector<std::string> lines = {fmt::format(
        "camera '{}' answers from {}, which is in the subnet of none of this machine's interfaces:", serial,
        address_text(camera->address))};
    std::transform(interfaces.begin(), interfaces.end(), std::back_inserter(lines), interface_text);
    lines.emplace_back("  - give the camera or an interface an address of the same subnet");
    return lines;
  }
  return {};
}

int list_cameras(const camera_library& library, const std::vector<std::string>& wanted, bool isSimulated) {
  const library_session started(library);
  const camera_search search = search_cameras(library, isSimulated);
  std::vector<std::string> reasons;
  if (search.found.empty()) {
    reasons = why_none(search.interfaces);
  } else {
    fmt::print("{}", camera_table(search.found));
    for (const std::string& serial : wanted) {
      const auto own = why_missing(serial, search);
      reasons.insert(reasons.end(), own.begin(), own.end());
    }
  }
  for (const std::string& line : reasons) {
    fmt::print("{}\n", line);
  }
  return reasons.empty() ? 0 : 1;
}

}  // namespace host
