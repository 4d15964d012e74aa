#include "platform/aravis/library.h"

#include <algorithm>

namespace gige {

library& library::instance() {
  static library& instance = *new library;
  return instance;
}

void library::initialize() {
  const environment read = read_environment();
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

std::vector<GEV_DEVICE_INTERFACE> library::search() {
  environment where;
  {
    const std::shared_lock lock(mutex_);
    where = environment_;
  }
  const std::vector<found_camera> found = find_cameras(where);
  std::vector<GEV_DEVICE_INTERFACE> records;
  std::transform(found.begin(), found.end(), std::back_inserter(records),
                 [](const auto& each) { return each.record; });
  const std::scoped_lock lock(mutex_);
  found_ = found;
  return records;
}

GEV_STATUS library::open(const GEV_DEVICE_INTERFACE& record, GevAccessMode mode, GEV_CAMERA_HANDLE& handle) {
  found_camera wanted{record, 0};
  environment surroundings;
  {
    const std::shared_lock lock(mutex_);
    surroundings = environment_;
    const auto known = std::find_if(found_.begin(), found_.end(),
                                    [&](const auto& each) { return each.record.ipAddr == record.ipAddr; });
    if (known != found_.end()) {
      wanted.interfaceAddress = known->interfaceAddress;
    }
  }
  std::shared_ptr<camera> opened;
  if (const GEV_STATUS status = camera::open(wanted, mode, surroundings, opened); status != GEVLIB_OK) {
    return status;
  }
  const std::scoped_lock lock(mutex_);
  handle = reinterpret_cast<GEV_CAMERA_HANDLE>(++lastHandle_);
  open_.emplace_back(handle, std::move(opened));
  return GEVLIB_OK;
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

bool library::close(GEV_CAMERA_HANDLE handle) {
  std::shared_ptr<camera> closing;  // ends outside of the lock
  const std::scoped_lock lock(mutex_);
  const auto found =
      std::find_if(open_.begin(), open_.end(), [=](const auto& each) { return each.first == handle; });
  if (found == open_.end()) {
    return false;
  }
  closing = std::move(found->second);
  open_.erase(found);
  return true;
}

}  // namespace gige
