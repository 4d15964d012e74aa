// All features of one simulated camera.
#ifndef PLATFORM_SIM_FEATURE_SET_H
#define PLATFORM_SIM_FEATURE_SET_H

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/sim/camera_description.h"
#include "platform/sim/simulated_feature.h"

namespace sim {

// One object for each row of the feature table, those that the camera lacks included.
class feature_set {
 public:
  feature_set(const camera_description& camera, feature_owner& owner);
  // Raises std::invalid_argument for a name that is not in the feature table.
  simulated_feature& at(std::string_view name);
  // Null for a feature that the camera does not have.
  simulated_feature* present(std::string_view name);
  // In the order of the table.
  void for_each_present(const std::function<void(simulated_feature&)>& visit);
  void power_up();

 private:
  std::map<std::string, simulated_feature, std::less<>> features_;
  std::vector<std::string> missing_;
};

}  // namespace sim

#endif
