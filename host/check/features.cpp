#include "host/check/features.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "host/acquire/limits.h"
#include "host/acquire/open_camera.h"
#include "host/acquire/thread_log.h"
#include "host/check/cameras.h"
#include "host/config/keys.h"
#include "host/config/text.h"

namespace host {
namespace {

constexpr std::array kTypeWords = {"integer", "float", "boolean", "enumeration", "string"};

std::vector<feature_record> listed_features(const camera_library& library, const std::string& serial) {
  auto all = camera_extension(library).features(serial);
  if (!all) {
    throw library_error("this camera library can't list features");
  }
  return std::move(*all);
}

// With control, so that the access of each feature shows what can be done with it; else beside whoever has
// it.
std::unique_ptr<open_camera> open_to_read(const camera_library& library, const std::string& serial) {
  try {
    return std::make_unique<open_camera>(library, serial);
  } catch (const camera_error&) {
    return std::make_unique<open_camera>(library, serial, GevMonitorMode);
  }
}

std::string access_text(const feature_record& feature) {
  return fmt::format("{}{}", feature.isReadable ? "r" : "-", feature.isWritable ? "w" : "-");
}

// "64 to 640 in steps of 16", "Off, Active"; empty where there is nothing to say.
std::string limits_text(const feature_record& feature) {
  if (!feature.entries.empty()) {
    return fmt::format("{}", fmt::join(feature.entries, ", "));
  }
  if (!feature.min || !feature.max) {
    return "";
  }
  const bool hasSteps = feature.increment && *feature.increment != "1";
  return fmt::format("{} to {}{}", *feature.min, *feature.max,
                     hasSteps ? fmt::format(" in steps of {}", *feature.increment) : "");
}

void print_feature(const feature_record& feature) {
  const std::string value = feature.value.value_or("-") + (feature.unit.empty() ? "" : " " + feature.unit);
  fmt::print("  {:<28} {:<12} {:<3} {:<24} {}\n", printable(feature.name), kTypeWords.at(feature.type),
             access_text(feature), printable(value), printable(limits_text(feature)));
}

void print_all(const std::vector<feature_record>& features) {
  std::string category;
  for (const feature_record& each : features) {
    if (each.category != category) {
      category = each.category;
      fmt::print("{}\n", printable(category));
    }
    print_feature(each);
  }
}

struct feature_request {
  std::string name;
  std::optional<std::string> value;
};

feature_request parse_request(const std::string& text) {
  const auto equals = text.find('=');
  return {text.substr(0, equals),
          equals == std::string::npos ? std::nullopt : std::optional(text.substr(equals + 1))};
}

// False, after a line that says why, when the camera does not take it.
bool write_feature(const open_camera& camera, const feature_request& wanted) {
  take_failures();
  if (camera.write(wanted.name.c_str(), *wanted.value)) {
    return true;
  }
  const std::string why = take_failures();
  fmt::print(stderr, "{} = {}: refused{}{}\n", printable(wanted.name), printable(*wanted.value),
             why.empty() ? "" : ": ", printable(why));
  return false;
}

bool print_named(const std::vector<feature_record>& features, const std::string& name) {
  if (const feature_record* found = find_feature(features, name)) {
    print_feature(*found);
    return true;
  }
  std::vector<std::string> names;
  std::transform(features.begin(), features.end(), std::back_inserter(names),
                 [](const auto& each) { return each.name; });
  const std::string meant = nearest(name, names);
  fmt::print(stderr, "{}: the camera has no such feature{}\n", printable(name),
             meant.empty() ? "" : fmt::format("; did you mean '{}'?", printable(meant)));
  return false;
}

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

int show_features(const camera_library& library, const std::string& serial,
                  const std::vector<std::string>& wanted) {
  const library_session started(library);
  std::vector<feature_request> requests;
  std::transform(wanted.begin(), wanted.end(), std::back_inserter(requests), parse_request);
  const bool isWriting =
      std::any_of(requests.begin(), requests.end(), [](const auto& each) { return each.value.has_value(); });
  const auto camera =
      isWriting ? std::make_unique<open_camera>(library, serial) : open_to_read(library, serial);
  if (requests.empty()) {
    print_all(listed_features(library, serial));
    return 0;
  }
  bool isDone = true;
  for (const feature_request& each : requests) {
    const bool isWritten = !each.value || write_feature(*camera, each);
    isDone = print_named(listed_features(library, serial), each.name) && isWritten && isDone;
  }
  return isDone ? 0 : 1;
}

camera_values values_of(const std::string& serial, const std::vector<feature_record>& features) {
  camera_values values = {{"serial", {fmt::format("\"{}\"", serial), ""}}};
  const auto take = [&](const char* key, const char* name) {
    const feature_record* found = find_feature(features, name);
    if (found != nullptr && found->value) {
      values[key] = {*found->value, limits_text(*found)};
    }
  };
  take("frame_rate_hz", "AcquisitionFrameRate");
  take("offset_x", "OffsetX");
  take("offset_y", "OffsetY");
  take("width", "Width");
  take("height", "Height");
  take("exposure_us", "ExposureTime");
  const feature_record* gain = find_feature(features, "Gain");
  double factor = 0;
  if (gain != nullptr && gain->value && (factor = std::strtod(gain->value->c_str(), nullptr)) > 0) {
    const auto range = limits_of(features).gainDb;
    values["gain_db"] = {fmt::format("{:.2f}", std::max(decibels(factor), 0.0)),
                         range ? fmt::format("{:.4g} to {:.4g}", range->min, range->max) : ""};
  }
  const auto isOn = [&](const char* name) {
    const feature_record* found = find_feature(features, name);
    return found != nullptr && found->value && (*found->value == "1" || *found->value == "True");
  };
  values["rotate180"] = {isOn("ReverseX") && isOn("ReverseY") ? "true" : "false", ""};
  return values;
}

int write_config(const camera_library& library, const std::string& serial) {
  const library_session started(library);
  const auto camera = open_to_read(library, serial);
  fmt::print("{}", config_template(values_of(serial, listed_features(library, serial))));
  return 0;
}

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
