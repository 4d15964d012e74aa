#include "host/acquire/extension.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <type_traits>

namespace host {
namespace {

template <std::size_t size>
std::string text_of(const char (&from)[size]) {
  return {from, strnlen(from, size)};
}

std::string text_of(const char* from) {
  return from == nullptr ? "" : from;
}

std::optional<std::string> optional_text(const char* from) {
  return from == nullptr ? std::nullopt : std::optional<std::string>(from);
}

found_camera found(const camera_extension_camera& camera) {
  return {.serial = text_of(camera.serial),
          .model = text_of(camera.model),
          .version = text_of(camera.version),
          .userName = text_of(camera.user_name),
          .mac = camera.mac,
          .address = camera.address,
          .controller = camera.controller,
          .unreachable = text_of(camera.unreachable)};
}

found_camera found(const GEV_DEVICE_INTERFACE& camera) {
  return {.serial = text_of(camera.serial),
          .model = text_of(camera.model),
          .version = text_of(camera.version),
          .userName = text_of(camera.username),
          .mac = std::uint64_t{camera.macHigh} << 32U | camera.macLow,
          .address = camera.ipAddr,
          .unreachable = ""};
}

feature_record recorded(const camera_extension_feature& feature) {
  return {.name = text_of(feature.name),
          .value = optional_text(feature.value),
          .min = optional_text(feature.min),
          .max = optional_text(feature.max),
          .increment = optional_text(feature.increment),
          .unit = text_of(feature.unit),
          .category = text_of(feature.category),
          .entries = {feature.entries, feature.entries + feature.entry_count},
          .type = feature.type,
          .isReadable = feature.readable != 0,
          .isWritable = feature.writable != 0};
}

}  // namespace

camera_extension::camera_extension(const camera_library& library) {
  const auto version =
      reinterpret_cast<decltype(&camera_extension_version)>(library.find("camera_extension_version"));
  if (version == nullptr || version() < CAMERA_EXTENSION_VERSION) {
    return;
  }
  const auto take = [&](auto& to, const char* name) {
    to = reinterpret_cast<std::remove_reference_t<decltype(to)>>(library.find(name));
  };
  take(prefer_, "camera_extension_prefer");
  take(list_, "camera_extension_list");
  take(features_, "camera_extension_features");
  take(health_, "camera_extension_health");
  take(cancel_, "camera_extension_cancel");
  take(setAddress_, "camera_extension_set_address");
}

void camera_extension::prefer(const std::vector<std::string>& serials) const {
  if (prefer_ == nullptr) {
    return;
  }
  std::vector<const char*> texts;
  std::transform(serials.begin(), serials.end(), std::back_inserter(texts),
                 [](const std::string& each) { return each.c_str(); });
  prefer_(texts.data(), texts.size());
}

std::optional<std::vector<found_camera>> camera_extension::list() const {
  std::vector<found_camera> cameras;
  const auto add = [](void* to, const camera_extension_camera* camera) {
    static_cast<std::vector<found_camera>*>(to)->push_back(found(*camera));
    return 0;
  };
  if (list_ == nullptr || list_(add, &cameras) != 0) {
    return std::nullopt;
  }
  return cameras;
}

std::optional<std::vector<feature_record>> camera_extension::features(const std::string& serial) const {
  std::vector<feature_record> features;
  const auto add = [](void* to, const camera_extension_feature* feature) {
    static_cast<std::vector<feature_record>*>(to)->push_back(recorded(*feature));
    return 0;
  };
  if (features_ == nullptr || features_(serial.c_str(), add, &features) != 0) {
    return std::nullopt;
  }
  return features;
}

std::optional<camera_extension_health_record> camera_extension::health(const std::string& serial) const {
  camera_extension_health_record record{};
  record.size = sizeof record;
  if (health_ == nullptr || health_(serial.c_str(), &record) != 0) {
    return std::nullopt;
  }
  return record;
}

void camera_extension::cancel(const std::string& serial) const {
  if (cancel_ != nullptr) {
    cancel_(serial.c_str());
  }
}

int camera_extension::set_address(std::uint64_t mac, std::uint32_t address, std::uint32_t mask,
                                  std::uint32_t gateway) const {
  return setAddress_ == nullptr ? -ENOTSUP : setAddress_(mac, address, mask, gateway);
}

const found_camera* find_camera(const std::vector<found_camera>& cameras, const std::string& serial) {
  const auto found = std::find_if(cameras.begin(), cameras.end(),
                                  [&](const found_camera& each) { return each.serial == serial; });
  return found == cameras.end() ? nullptr : &*found;
}

std::vector<found_camera> find_cameras(const camera_library& library) {
  if (auto all = camera_extension(library).list()) {
    return std::move(*all);
  }
  std::vector<found_camera> cameras;
  for (const GEV_DEVICE_INTERFACE& each : library.list()) {
    cameras.push_back(found(each));
  }
  return cameras;
}

}  // namespace host
