#include "platform/gige/library.h"

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

library& library::instance() {
  static library& instance = *new library;
  return instance;
}

void library::initialize() {
  const environment read = read_environment();
  prepare_descriptions();
  const std::scoped_lock lock(mutex_);
  environment_ = read;
  ++initializations_;
}

bool library::uninitialize() {
  const std::scoped_lock lock(mutex_);
  return initializations_ > 0 && initializations_-- > 0;
}

bool library::initialized() const {
  const std::shared_lock lock(mutex_);
  return initializations_ > 0;
}

environment library::surroundings() const {
  const std::shared_lock lock(mutex_);
  return environment_;
}

// ---- Searching

void library::prefer(std::vector<std::string> serials) {
  const std::scoped_lock lock(mutex_);
  preferred_ = std::move(serials);
}

std::vector<found_camera> library::search_networks() {
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

void library::set_address(const gige_protocol::forced_ip& wanted) const {
  gige::set_address(wanted, surroundings().interfaces);
}

// ---- Open cameras

// From the search that found it, our own address towards the camera.
camera_place library::place_of(const GEV_DEVICE_INTERFACE& record) const {
  const std::shared_lock lock(mutex_);
  const auto known = std::find_if(found_.begin(), found_.end(),
                                  [&](const auto& each) { return each.record.ip == record.ipAddr; });
  return {.address = record.ipAddr, .ownAddress = known == found_.end() ? 0 : known->ownAddress};
}

GEV_CAMERA_HANDLE library::open(const GEV_DEVICE_INTERFACE& record, GevAccessMode mode) {
  const auto owner = std::make_shared<link>(text_of(record.serial));
  {
    const std::scoped_lock lock(mutex_);
    std::erase_if(links_, [](const auto& each) { return each.expired(); });
    links_.push_back(owner);
  }
  auto opened = std::make_shared<camera>(owner, place_of(record), mode, surroundings());
  const std::scoped_lock lock(mutex_);
  const auto handle = reinterpret_cast<GEV_CAMERA_HANDLE>(++lastHandle_);
  open_.emplace_back(handle, std::move(opened));
  return handle;
}

GEV_STATUS library::find(GEV_CAMERA_HANDLE handle, std::shared_ptr<camera>& found) const {
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

std::shared_ptr<camera> library::find(const std::string& serial) const {
  const std::shared_lock lock(mutex_);
  const auto known = std::find_if(open_.begin(), open_.end(),
                                  [&](const auto& each) { return each.second->serial() == serial; });
  return known == open_.end() ? nullptr : known->second;
}

bool library::close(GEV_CAMERA_HANDLE handle) {
  std::shared_ptr<camera> closing;
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
  closing->hurry();  // whoever still waits in it holds it open
  return true;
}

bool library::read_health(const std::string& serial, camera_extension_health_record& record) const {
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

bool library::cancel(const std::string& serial) {
  bool found = false;
  const std::shared_lock lock(mutex_);
  for (const auto& each : links_) {
    const auto waiting = each.lock();
    if (waiting != nullptr && waiting->camera() == serial) {
      waiting->cancel();
      found = true;
    }
  }
  return found;
}

}  // namespace gige
