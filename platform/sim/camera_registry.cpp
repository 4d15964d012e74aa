#include "platform/sim/camera_registry.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>

#include "platform/sim/clock.h"
#include "platform/sim/interception.h"
#include "platform/sim/parsing.h"

namespace sim {
namespace {

std::string contents(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  if (!(text << file.rdbuf())) {
    throw std::invalid_argument("cannot read the file '" + path + "'");
  }
  return text.str();
}

// The description of the cameras of a process that adds none itself.
std::string default_cameras() {
  const char* const variable = std::getenv("SIM_CAMERAS");
  const std::string text = variable == nullptr ? "" : variable;
  if (text.empty()) {
    return "serial=SIM00001";
  }
  return text[0] == '@' ? contents(text.substr(1)) : text;
}

}  // namespace

camera_registry& camera_registry::instance() {
  static camera_registry& instance = *new camera_registry;
  return instance;
}

void camera_registry::initialize() {
  if (isDefaultAllowed_ && cameras().empty()) {
    add(default_cameras());
  }
  ++initializations_;
}

bool camera_registry::uninitialize() {
  int count = initializations_.load();
  while (count > 0 && !initializations_.compare_exchange_weak(count, count - 1)) {
  }
  return count > 0;
}

void camera_registry::add(const std::string& description) {
  const std::scoped_lock lock(mutex_);
  std::vector<std::shared_ptr<simulated_camera>> added;
  std::vector<std::pair<std::string, std::string>> faults;
  for (camera_description& each : parse_cameras(description, cameras_.size())) {
    try {
      for (const std::string& fault : each.faults) {
        parse_faults(fault);
        faults.emplace_back(fault, each.serial);
      }
      added.push_back(std::make_shared<simulated_camera>(std::move(each)));
    } catch (const std::invalid_argument& error) {
      throw std::invalid_argument("camera " + std::to_string(added.size() + 1) + ": " + error.what());
    }
  }
  cameras_.insert(cameras_.end(), added.begin(), added.end());
  for (const auto& [fault, serial] : faults) {
    inject(fault, serial);
  }
}

void camera_registry::clear() {
  std::vector<std::pair<GEV_CAMERA_HANDLE, std::shared_ptr<simulated_camera>>> closing;
  {
    const std::scoped_lock lock(mutex_);
    closing.swap(open_);
    cameras_.clear();
    preferred_.clear();
    isDefaultAllowed_ = false;
  }
  for (const auto& [handle, each] : closing) {
    each->close();
  }
}

std::vector<std::shared_ptr<simulated_camera>> camera_registry::cameras() const {
  const std::shared_lock lock(mutex_);
  const auto rank = [this](const std::shared_ptr<simulated_camera>& each) {
    return std::find(preferred_.begin(), preferred_.end(), each->serial()) - preferred_.begin();
  };
  auto all = cameras_;
  std::stable_sort(all.begin(), all.end(), [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
  return all;
}

void camera_registry::prefer(std::vector<std::string> serials) {
  const std::scoped_lock lock(mutex_);
  preferred_ = std::move(serials);
}

std::shared_ptr<simulated_camera> camera_registry::by_serial(const std::string& serial) const {
  const std::shared_lock lock(mutex_);
  const auto found = std::find_if(cameras_.begin(), cameras_.end(),
                                  [&](const auto& each) { return each->serial() == serial; });
  return found == cameras_.end() ? nullptr : *found;
}

std::shared_ptr<simulated_camera> camera_registry::by_handle(GEV_CAMERA_HANDLE handle) const {
  const std::shared_lock lock(mutex_);
  const auto found =
      std::find_if(open_.begin(), open_.end(), [=](const auto& each) { return each.first == handle; });
  return found == open_.end() ? nullptr : found->second;
}

GEV_STATUS camera_registry::open(const GEV_DEVICE_INTERFACE& record, GevAccessMode mode,
                                 GEV_CAMERA_HANDLE& handle) {
  const auto all = cameras();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const auto& each) { return each->answers_to(record); });
  if (found == all.end()) {
    return GEVLIB_ERROR_DEVICE_NOT_FOUND;
  }
  const auto& wanted = *found;
  if (const GEV_STATUS status = wanted->open(mode); status != GEVLIB_OK) {
    return status;
  }
  const std::scoped_lock lock(mutex_);
  handle = reinterpret_cast<GEV_CAMERA_HANDLE>(++lastHandle_);
  open_.emplace_back(handle, wanted);
  return GEVLIB_OK;
}

bool camera_registry::close(GEV_CAMERA_HANDLE handle) {
  const auto closing = by_handle(handle);
  if (closing == nullptr) {
    return false;
  }
  {
    const std::scoped_lock lock(mutex_);
    std::erase_if(open_, [=](const auto& each) { return each.first == handle; });
  }
  closing->close();
  return true;
}

open_counts camera_registry::counts() const {
  open_counts counts{.initializations = initializations_, .cameras = 0, .transfers = 0, .frames = 0};
  const std::shared_lock lock(mutex_);
  counts.cameras = static_cast<int>(open_.size());
  for (const auto& [handle, each] : open_) {
    counts.transfers += each->has_transfer() ? 1 : 0;
    counts.frames += static_cast<int>(each->frames_held());
  }
  return counts;
}

// ---- What sim.h offers

namespace {

std::shared_ptr<simulated_camera> known(const std::string& serial) {
  auto found = camera_registry::instance().by_serial(serial);
  if (found == nullptr) {
    throw std::invalid_argument(
        "no camera '" + serial + "', there are: " +
        listed(camera_registry::instance().cameras(), [](const auto& each) { return each->serial(); }));
  }
  return found;
}

}  // namespace

void add_cameras(const std::string& description) {
  camera_registry::instance().add(description);
}

void reset() {
  camera_registry::instance().clear();
  clear_faults();
  journal(nullptr);
  release_clock();
}

std::string feature(const std::string& serial, const std::string& name, const std::string& selected) {
  return known(serial)->feature_text(name, selected);
}

void set_feature(const std::string& serial, const std::string& name, const std::string& value) {
  known(serial)->force_feature(name, value);
}

void alter_feature(const std::string& serial, const std::string& name, const std::string& property,
                   const std::string& value) {
  known(serial)->alter_feature(name, property, value);
}

open_counts open_now() {
  return camera_registry::instance().counts();
}

std::uint64_t frames_lost(const std::string& serial) {
  return known(serial)->frames_lost();
}

}  // namespace sim
