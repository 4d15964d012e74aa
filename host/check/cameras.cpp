#include "host/check/cameras.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "host/config/keys.h"

namespace host {
namespace {

// The driver looks for its camera among so many of those that answer.
constexpr std::size_t kCamerasOfDriver = 8;

std::uint32_t ipv4(const sockaddr* address) {
  sockaddr_in inet{};
  std::memcpy(&inet, address, sizeof inet);
  return ntohl(inet.sin_addr.s_addr);
}

std::string interface_text(const network_interface& each) {
  return fmt::format("  interface {}: {}, mask {}, {}", each.name, address_text(each.address),
                     address_text(each.mask), each.isUp ? "up" : "DOWN");
}

bool is_reachable(const GEV_DEVICE_INTERFACE& camera, const std::vector<network_interface>& interfaces) {
  return std::any_of(interfaces.begin(), interfaces.end(),
                     [&](const auto& each) { return each.reaches(camera.ipAddr); });
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

std::string camera_table(const std::vector<GEV_DEVICE_INTERFACE>& cameras) {
  const char* row = "{:<20} {:<24} {:<16} {}\n";
  std::string text = fmt::format(fmt::runtime(row), "SERIAL", "MODEL", "ADDRESS", "VERSION");
  for (const GEV_DEVICE_INTERFACE& camera : cameras) {
    text += fmt::format(fmt::runtime(row), camera.serial, camera.model, address_text(camera.ipAddr),
                        camera.version);
  }
  return text;
}

std::vector<std::string> why_missing(const std::string& serial,
                                     const std::vector<GEV_DEVICE_INTERFACE>& found,
                                     const std::vector<network_interface>& interfaces) {
  if (found.empty()) {
    return why_none(interfaces);
  }
  if (serial.empty()) {
    return {};
  }
  const auto camera =
      std::find_if(found.begin(), found.end(), [&](const auto& each) { return serial == each.serial; });
  if (camera == found.end()) {
    std::vector<std::string> serials;
    std::transform(found.begin(), found.end(), std::back_inserter(serials),
                   [](const auto& each) { return each.serial; });
    const std::string meant = nearest(serial, serials);
    return {fmt::format("camera '{}' did not answer; others did: {}", serial, fmt::join(serials, ", ")),
            meant.empty()
                ? "  - it has no power or no link, or the serial number is of another camera"
                : fmt::format("  - did you mean '{}'? Serial numbers are compared byte for byte", meant)};
  }
  if (static_cast<std::size_t>(camera - found.begin()) >= kCamerasOfDriver) {
    return {fmt::format("camera '{}' answers, but as number {}; the driver looks at the first {} only",
                        serial, camera - found.begin() + 1, kCamerasOfDriver),
            "  - take cameras that are not used off this network"};
  }
  if (!interfaces.empty() && !is_reachable(*camera, interfaces)) {
    std::vector<std::string> lines = {fmt::format(
        "camera '{}' answers from {}, which is in the subnet of none of this machine's interfaces:", serial,
        address_text(camera->ipAddr))};
    std::transform(interfaces.begin(), interfaces.end(), std::back_inserter(lines), interface_text);
    lines.emplace_back("  - give the camera or an interface an address of the same subnet");
    return lines;
  }
  return {};
}

int list_cameras(const camera_library& library, const std::vector<std::string>& wanted, bool isSimulated) {
  if (const GEV_STATUS status = library.initialize(); status != GEVLIB_OK) {
    throw library_error(fmt::format("the camera library does not start: GevApiInitialize gave {}", status));
  }
  const std::vector<GEV_DEVICE_INTERFACE> cameras = library.list();
  library.uninitialize();

  const std::vector<network_interface> interfaces = surroundings(isSimulated);
  std::vector<std::string> reasons;
  if (cameras.empty()) {
    reasons = why_missing("", cameras, interfaces);
  } else {
    fmt::print("{}", camera_table(cameras));
  }
  for (const std::string& serial : cameras.empty() ? std::vector<std::string>{} : wanted) {
    const auto own = why_missing(serial, cameras, interfaces);
    reasons.insert(reasons.end(), own.begin(), own.end());
  }
  for (const std::string& line : reasons) {
    fmt::print("{}\n", line);
  }
  return reasons.empty() ? 0 : 1;
}

}  // namespace host
