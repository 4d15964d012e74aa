#include "platform/sim/feature_set.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

#include "platform/picture/sensor_limits.h"
#include "platform/sim/parsing.h"

namespace sim {
namespace {

bool contains(const std::vector<std::string>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Puts what the camera's description says of a feature into the feature's row.
void describe(feature_row& row, const camera_description& camera) {
  const auto smallest = [](std::int64_t sensor) {
    return std::min<std::int64_t>(picture::smallestWindowSide, sensor);
  };
  const std::map<std::string, std::function<void()>, std::less<>> own = {
      {"DeviceModelName", [&] { row.powerUp = camera.model; }},
      {"DeviceSerialNumber", [&] { row.powerUp = camera.serial; }},
      {"DeviceVersion", [&] { row.powerUp = camera.version; }},
      {"GevTimestampTickFrequency", [&] { row.powerUp = camera.ticks; }},
      {"AcquisitionFrameRate", [&] { row.powerUp = camera.fps; }},
      {"ExposureTime", [&] { row.powerUp = camera.exposureUs; }},
      {"DeviceTemperature",
       [&] {
         row.isMeasured = !camera.temperature.has_value();
         row.powerUp = camera.temperature.value_or(0);
       }},
      {"OffsetX", [&] { row.max = camera.width - smallest(camera.width); }},
      {"OffsetY", [&] { row.max = camera.height - smallest(camera.height); }},
      {"Width",
       [&] {
         row.powerUp = row.max = camera.width;
         row.min = smallest(camera.width);
       }},
      {"Height",
       [&] {
         row.powerUp = row.max = camera.height;
         row.min = smallest(camera.height);
       }},
  };
  if (const auto found = own.find(row.name); found != own.end()) {
    found->second();
  }
  if (contains(camera.readonly, row.name)) {
    row.access = GenApi::RO;
  }
  for (const auto& [feature, entry] : camera.entryless) {
    if (feature == row.name) {
      std::erase_if(row.entries, [&name = entry](const gev::entry& each) { return each.name == name; });
    }
  }
}

}  // namespace

feature_set::feature_set(const camera_description& camera, feature_owner& owner) : missing_(camera.missing) {
  for (feature_row row : feature_table()) {
    describe(row, camera);
    const std::string name = row.name;
    auto& made = features_.try_emplace(name, std::move(row), owner).first->second;
    if (contains(camera.retype, name)) {
      made.alter("kind", "string");
    }
  }
  const auto named = [&](const std::string& name) { return name.empty() ? nullptr : &at(name); };
  for (const feature_row& row : feature_table()) {
    at(row.name).connect(named(row.selector), named(row.fitsWith),
                         camera.liveLimits && !row.fitsWith.empty());
  }
}

simulated_feature& feature_set::at(std::string_view name) {
  const auto found = features_.find(name);
  if (found == features_.end()) {
    throw std::invalid_argument("unknown feature '" + std::string(name) + "', known features are " +
                                listed(feature_table(), [](const feature_row& row) { return row.name; }));
  }
  return found->second;
}

simulated_feature* feature_set::present(std::string_view name) {
  const auto found = features_.find(name);
  return found == features_.end() || contains(missing_, name) ? nullptr : &found->second;
}

void feature_set::for_each_present(const std::function<void(simulated_feature&)>& visit) {
  for (const feature_row& row : feature_table()) {
    if (simulated_feature* const feature = present(row.name)) {
      visit(*feature);
    }
  }
}

void feature_set::power_up() {
  for (auto& [name, feature] : features_) {
    feature.power_up();
  }
}

}  // namespace sim
