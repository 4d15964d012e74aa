#include "host/check/address.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <vector>

#include "host/acquire/extension.h"
#include "host/acquire/thread_log.h"
#include "host/check/cameras.h"
#include "host/config/text.h"

namespace host {
namespace {

std::string mac_digits(const std::string& text) {
  std::string digits;
  std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
               [](char letter) { return letter != ':'; });
  return digits;
}

bool is_meant(const found_camera& camera, const std::string& text) {
  std::uint64_t mac = 0;
  const std::string digits = mac_digits(text);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), mac, 16);
  const bool isMac = digits.size() == 12 && error == std::errc() && end == digits.data() + digits.size();
  return camera.serial == text || (isMac && camera.mac == mac);
}

std::optional<std::uint32_t> parse_ipv4(const std::string& text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1 ? std::optional(ntohl(address.s_addr))
                                                         : std::nullopt;
}

std::optional<std::uint32_t> parse_mask(const std::string& text) {
  unsigned bits = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bits);
  if (error == std::errc() && end == text.data() + text.size()) {
    return bits >= 1 && bits <= 30 ? std::optional(~std::uint32_t{0} << (32 - bits)) : std::nullopt;
  }
  const auto mask = parse_ipv4(text);
  const bool isMask = mask && (~*mask & (~*mask + 1)) == 0;  // ones, then zeros
  return isMask ? mask : std::nullopt;
}

}  // namespace

std::optional<ip_configuration> parse_address(const std::string& text) {
  const auto slash = text.find('/');
  if (slash == std::string::npos) {
    return std::nullopt;
  }
  const auto address = parse_ipv4(text.substr(0, slash));
  const auto mask = parse_mask(text.substr(slash + 1));
  if (!address || !mask || (*address & ~*mask) == 0 || (*address | *mask) == ~std::uint32_t{0}) {
    return std::nullopt;
  }
  return ip_configuration{*address, *mask};
}

int set_camera_address(const camera_library& library, const std::string& camera, const std::string& address) {
  const library_session started(library);
  const std::vector<found_camera> found = find_cameras(library);
  const auto meant =
      std::find_if(found.begin(), found.end(), [&](const auto& each) { return is_meant(each, camera); });
  if (meant == found.end()) {
    fmt::print(stderr, "no camera with serial number or hardware address '{}' answers\n{}", printable(camera),
               camera_table(found));
    return 1;
  }
  const ip_configuration wanted = parse_address(address).value();
  take_failures();
  const int status = camera_extension(library).set_address(meant->mac, wanted.address, wanted.mask, 0);
  if (status != 0) {
    const std::string logged = take_failures();
    const std::string why = status == -ENOTSUP ? "this camera library can't set addresses"
                            : logged.empty()   ? std::strerror(-status)
                                               : logged;
    fmt::print(stderr, "camera '{}' did not take {}: {}\n", printable(camera), address, printable(why));
    return 1;
  }
  fmt::print("camera '{}' has {} until it is switched off\n", printable(camera), address);
  return 0;
}

}  // namespace host
