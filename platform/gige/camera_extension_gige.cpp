// The extension over cameras on the network.
#include <camera_extension.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "core/log.h"
#include "platform/gev/extension_feature.h"
#include "platform/gige/camera_registry.h"
#include "platform/gige/control/camera_control.h"
#include "platform/gige/control/control_error.h"

#define EXTENSION_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using gige::camera_registry;
using gige::found_camera;
using std::chrono::milliseconds;

constexpr std::uint32_t unnamedController = UINT32_MAX;

// An exception becomes an errno, and its text a log line in the name of the call.
template <class Work>
int guarded_call(Work work, Zavik::caller where = Zavik::caller::here()) {
  if (!camera_registry::instance().is_initialized()) {
    return -ENOTCONN;
  }
  try {
    return work();
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  } catch (const GenICam::GenericException& error) {
    LOG_FROM(where, 1, "fail: %s", error.what());
  } catch (const std::exception& error) {
    LOG_FROM(where, 1, "fail: %s", error.what());
  }
  return -EIO;
}

// The address of the client that controls the camera; 0 when there is none, the camera does not answer, or
// `deadline` has passed.
std::uint32_t controller_of(const found_camera& found, gige::connection_state::clock::time_point deadline) {
  if (!found.unreachable.empty() || gige::connection_state::clock::now() >= deadline) {
    return 0;
  }
  try {
    const auto connection = std::make_shared<gige::connection_state>(std::string(found.record.serial.view()));
    gige::control_channel channel(connection, found.ownAddress, found.record.ip,
                                  {.answer = milliseconds(100), .retries = 0, .pending = milliseconds(100)});
    const gige::controller who = gige::read_controller(channel);
    return !who.held ? 0 : who.address != 0 ? who.address : unnamedController;
  } catch (const gige::control_error&) {
    return 0;
  }
}

int visit_camera(const found_camera& found, std::uint32_t controller,
                 int (*visit)(void*, const camera_extension_camera*), void* context) {
  const auto& from = found.record;
  const std::string manufacturer(from.manufacturer.view());
  const std::string model(from.model.view());
  const std::string serial(from.serial.view());
  const std::string version(from.deviceVersion.view());
  const std::string userName(from.userName.view());
  const camera_extension_camera camera{
      .manufacturer = manufacturer.c_str(),
      .model = model.c_str(),
      .serial = serial.c_str(),
      .version = version.c_str(),
      .user_name = userName.c_str(),
      .interface_name = found.interfaceName.c_str(),
      .unreachable = found.unreachable.empty() ? nullptr : found.unreachable.c_str(),
      .mac = std::uint64_t{gige_protocol::load<std::uint16_t>(from.mac, 0)} << 32U |
             gige_protocol::load<std::uint32_t>(from.mac, 2),
      .address = from.ip,
      .mask = from.subnetMask,
      .gateway = from.gateway,
      .controller = controller};
  return visit(context, &camera);
}

}  // namespace

EXTENSION_EXPORT int camera_extension_version(void) {
  return CAMERA_EXTENSION_VERSION;
}

EXTENSION_EXPORT int camera_extension_prefer(const char* const* serials, size_t count) {
  if (serials == nullptr && count > 0) {
    return -EINVAL;
  }
  return guarded_call([=] {
    camera_registry::instance().prefer({serials, serials + count});
    return 0;
  });
}

EXTENSION_EXPORT int camera_extension_list(int (*visit)(void* context, const camera_extension_camera* camera),
                                           void* context) {
  if (visit == nullptr) {
    return -EINVAL;
  }
  return guarded_call([=] {
    constexpr milliseconds patience(1000);  // for all answers together, however many are forged
    const auto found = camera_registry::instance().search_networks();
    const auto deadline = gige::connection_state::clock::now() + patience;
    for (const found_camera& each : found) {
      if (visit_camera(each, controller_of(each, deadline), visit, context) != 0) {
        break;
      }
    }
    return 0;
  });
}

EXTENSION_EXPORT int camera_extension_set_address(uint64_t mac, uint32_t ip, uint32_t mask,
                                                  uint32_t gateway) {
  constexpr std::uint64_t largestMac = (std::uint64_t{1} << 48U) - 1;
  if (mac > largestMac) {
    return -EINVAL;
  }
  return guarded_call([=] {
    gige_protocol::forced_ip wanted{.mac = {}, .ip = ip, .subnetMask = mask, .gateway = gateway};
    for (std::size_t at = 0; at < wanted.mac.size(); ++at) {
      wanted.mac[at] = static_cast<std::uint8_t>(mac >> (8 * (wanted.mac.size() - 1 - at)));
    }
    camera_registry::instance().set_address(wanted);
    return 0;
  });
}

EXTENSION_EXPORT int camera_extension_features(
    const char* serial, int (*visit)(void* context, const camera_extension_feature* feature), void* context) {
  if (serial == nullptr || visit == nullptr) {
    return -EINVAL;
  }
  return guarded_call([=] {
    const auto camera = camera_registry::instance().find(serial);
    if (camera == nullptr) {
      return -ENODEV;
    }
    return gev::visit_features(camera->list_features(), visit, context);
  });
}

EXTENSION_EXPORT int camera_extension_health(const char* serial, camera_extension_health_record* record) {
  if (serial == nullptr || record == nullptr || record->size < sizeof record->size) {
    return -EINVAL;
  }
  return guarded_call([=] {
    camera_extension_health_record found{};
    if (!camera_registry::instance().read_health(serial, found)) {
      return -ENODEV;
    }
    found.size = record->size;
    std::memcpy(record, &found, std::min<std::size_t>(record->size, sizeof found));
    return 0;
  });
}

EXTENSION_EXPORT int camera_extension_cancel(const char* serial) {
  if (serial == nullptr) {
    return -EINVAL;
  }
  return guarded_call([=] { return camera_registry::instance().cancel(serial) ? 0 : -ENODEV; });
}
