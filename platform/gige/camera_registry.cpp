#include "platform/gige/camera_registry.h"

#include <algorithm>
#include <mutex>
#include <string_view>

#include "platform/gige/control/force_ip.h"
#include "platform/gige/description/camera_features.h"

namespace gige {
namespace {

template <std::size_t size>
void put_text(std::string_view text, char (&to)[size]) {
  to[text.copy(to, size - 1)] = '\0';
}

template <std::size_t size>
std::string text_of(const char (&from)[size]) {
  return {from, std::find(from, from + size, '\0')};
}

}  // namespace

GEV_DEVICE_INTERFACE record_of(const found_camera& found) {
  const auto& from = found.record;
  GEV_DEVICE_INTERFACE record{};
  put_text(from.manufacturer.view(), record.manufacturer);
  put_text(from.model.view(), record.model);
  put_text(from.serial.view(), record.serial);
  put_text(from.deviceVersion.view(), record.version);
  put_text(from.userName.view(), record.username);
  record.ipAddr = from.ip;
  record.macHigh = gige_protocol::load<std::uint16_t>(from.mac, 0);
  record.macLow = gige_protocol::load<std::uint32_t>(from.mac, 2);
  return record;
}

camera_registry& camera_registry::instance() {
  static camera_registry& instance = *new camera_registry;
  return instance;
}

void camera_registry::initialize() {
  const environment read = read_environment();
  prepare_descriptions();
  const std::scoped_lock lock(mutex_);
  environment_ = read;
  ++initializations_;
}

bool camera_registry::uninitialize() {
  const std::scoped_lock lock(mutex_);
  return initializations_ > 0 && initializations_-- > 0;
}

bool camera_registry::is_initialized() const {
  const std::shared_lock lock(mutex_);
  return initializations_ > 0;
}

environment camera_registry::current_environment() const {
  const std::shared_lock lock(mutex_);
  return environment_;
}

// ---- Searching

void camera_registry::prefer(std::vector<std::string> serials) {
  const std::scoped_lock lock(mutex_);
  preferred_ = std::move(serials);
}

std::vector<found_camera> camera_registry::search_networks() {
  search what;
  {
    const std::shared_lock lock(mutex_);
    what = {.interfaces = environment_.interfaces,
            .addresses = environment_.addresses,
            .preferred = preferred_,
            .patience = environment_.discovery};
  }
  std::vector<found_camera> found = find_cameras(what);
  const std::scoped_lock lock(mutex_);
  found_ = found;
  return found;
}

void camera_registry::set_address(const gige_protocol::forced_ip& wanted) const {
  gige::set_address(wanted, current_environment().interfaces);
}

// ---- Open cameras

// The search that found the camera also found our own address towards it.
endpoints camera_registry::endpoints_of(const GEV_DEVICE_INTERFACE& record) const {
  const std::shared_lock lock(mutex_);
  const auto known = std::find_if(found_.begin(), found_.end(),
                                  [&](const auto& each) { return each.record.ip == record.ipAddr; });
  return {.camera = record.ipAddr, .own = known == found_.end() ? 0 : known->ownAddress};
}

GEV_CAMERA_HANDLE camera_registry::open(const GEV_DEVICE_INTERFACE& record, GevAccessMode mode) {
  const auto connection = std::make_shared<connection_state>(text_of(record.serial));
  {
    const std::scoped_lock lock(mutex_);
    std::erase_if(connections_, [](const auto& each) { return each.expired(); });
    connections_.push_back(connection);
  }
  auto opened =
      std::make_shared<network_camera>(connection, endpoints_of(record), mode, current_environment());
  const std::scoped_lock lock(mutex_);
  const auto handle = reinterpret_cast<GEV_CAMERA_HANDLE>(++lastHandle_);
  open_.emplace_back(handle, std::move(opened));
  return handle;
}

GEV_STATUS camera_registry::find(GEV_CAMERA_HANDLE handle, std::shared_ptr<network_camera>& found) const {
  const std::shared_lock lock(mutex_);
  if (initializations_ == 0) {
    return GEVLIB_ERROR_NOT_INITIALIZED;
  }
  const auto known =
      std::find_if(open_.begin(), open_.end(), [=](const auto& each) { return each.first == handle; });
  if (known == open_.end()) {
    return GEVLIB_ERROR_INVALID_HANDLE;
  }
  found = known->second;
  return GEVLIB_OK;
}

std::shared_ptr<network_camera> camera_registry::find(const std::string& serial) const {
  const std::shared_lock lock(mutex_);
  const auto known = std::find_if(open_.begin(), open_.end(),
                                  [&](const auto& each) { return each.second->serial() == serial; });
  return known == open_.end() ? nullptr : known->second;
}

bool camera_registry::close(GEV_CAMERA_HANDLE handle) {
  std::shared_ptr<network_camera> closing;
  {
    const std::scoped_lock lock(mutex_);
    const auto found =
        std::find_if(open_.begin(), open_.end(), [=](const auto& each) { return each.first == handle; });
    if (found == open_.end()) {
      return false;
    }
    closing = std::move(found->second);
    open_.erase(found);
    closing->read_health(closed_[closing->serial()]);
  }
  closing->end_waits();  // a caller that waits in it keeps it open
  return true;
}

bool camera_registry::read_health(const std::string& serial, camera_extension_health_record& record) const {
  if (const auto open = find(serial)) {
    open->read_health(record);
    return true;
  }
  const std::shared_lock lock(mutex_);
  const auto known = closed_.find(serial);
  if (known == closed_.end()) {
    return false;
  }
  record = known->second;
  return true;
}

bool camera_registry::cancel(const std::string& serial) {
  bool found = false;
  const std::shared_lock lock(mutex_);
  for (const auto& each : connections_) {
    const auto waiting = each.lock();
    if (waiting != nullptr && waiting->camera() == serial) {
      waiting->cancel();
      found = true;
    }
  }
  return found;
}

}  // namespace gige
