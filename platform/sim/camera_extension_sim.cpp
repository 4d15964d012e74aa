// camera_extension.h over the simulated cameras.
#include <camera_extension.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/gev/extension_feature.h"
#include "platform/sim/camera_registry.h"

#define EXTENSION_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using sim::camera_registry;
using sim::simulated_camera;

constexpr std::uint32_t linkLocalMask = 0xFFFF0000;
constexpr std::uint32_t thisMachine = 0x7F000001;

// Calls `work` if the library is initialized. No exception leaves the library.
template <class Work>
int extension_call(Work work) {
  if (!camera_registry::instance().initialized()) {
    return -ENOTCONN;
  }
  try {
    return work();
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

// The same for a call of the camera with that serial number, which is passed to `work`.
template <class Work>
int camera_call(const char* serial, Work work) {
  return extension_call([&] {
    if (serial == nullptr) {
      return -EINVAL;
    }
    const std::shared_ptr<simulated_camera> named = camera_registry::instance().by_serial(serial);
    return named == nullptr ? -ENODEV : work(*named);
  });
}

std::uint64_t mac_of(const GEV_DEVICE_INTERFACE& record) {
  return std::uint64_t{record.macHigh} << 32U | record.macLow;
}

int visit_camera(simulated_camera& of, int (*visit)(void*, const camera_extension_camera*), void* context) {
  const GEV_DEVICE_INTERFACE record = of.record();
  const camera_extension_camera found = {.manufacturer = record.manufacturer,
                                         .model = record.model,
                                         .serial = record.serial,
                                         .version = record.version,
                                         .user_name = record.username,
                                         .interface_name = "",
                                         .unreachable = nullptr,
                                         .mac = mac_of(record),
                                         .address = record.ipAddr,
                                         .mask = linkLocalMask,
                                         .gateway = 0,
                                         .controller = of.is_open() ? thisMachine : 0};
  return visit(context, &found);
}

}  // namespace

EXTENSION_EXPORT int camera_extension_version(void) {
  return CAMERA_EXTENSION_VERSION;
}

EXTENSION_EXPORT int camera_extension_prefer(const char* const* serials, size_t count) {
  return extension_call([=] {
    const bool isNull = serials == nullptr && count > 0;
    if (isNull || std::any_of(serials, serials + count, [](const char* each) { return each == nullptr; })) {
      return -EINVAL;
    }
    camera_registry::instance().prefer({serials, serials + count});
    return 0;
  });
}

EXTENSION_EXPORT int camera_extension_list(int (*visit)(void*, const camera_extension_camera*),
                                           void* context) {
  return extension_call([=] {
    if (visit == nullptr) {
      return -EINVAL;
    }
    const auto address = [](const auto& each) { return each->description().address; };
    auto cameras = camera_registry::instance().cameras();
    std::stable_sort(cameras.begin(), cameras.end(),
                     [&](const auto& a, const auto& b) { return address(a) < address(b); });
    for (const auto& each : cameras) {
      if (visit_camera(*each, visit, context) != 0) {
        break;
      }
    }
    return 0;
  });
}

EXTENSION_EXPORT int camera_extension_set_address(uint64_t /*mac*/, uint32_t /*ip*/, uint32_t /*mask*/,
                                                  uint32_t /*gateway*/) {
  return -ENOTSUP;
}

EXTENSION_EXPORT int camera_extension_features(const char* serial,
                                               int (*visit)(void*, const camera_extension_feature*),
                                               void* context) {
  return camera_call(serial, [=](simulated_camera& of) {
    if (visit == nullptr) {
      return -EINVAL;
    }
    if (!of.is_open()) {
      return -ENODEV;
    }
    return gev::visit_features(of.list_features(), visit, context);
  });
}

EXTENSION_EXPORT int camera_extension_health(const char* serial, camera_extension_health_record* record) {
  return camera_call(serial, [=](simulated_camera& of) {
    if (record == nullptr || record->size < sizeof record->size) {
      return -EINVAL;
    }
    const std::uint32_t size = record->size;
    const camera_extension_health_record now = of.health();
    std::memcpy(record, &now, std::min<std::size_t>(size, sizeof now));
    record->size = size;
    return 0;
  });
}

EXTENSION_EXPORT int camera_extension_cancel(const char* serial) {
  return camera_call(serial, [](simulated_camera& of) {
    of.cancel();
    return 0;
  });
}
