// A camera's features, from its description and its registers.
#ifndef PLATFORM_GIGE_DESCRIPTION_CAMERA_FEATURES_H
#define PLATFORM_GIGE_DESCRIPTION_CAMERA_FEATURES_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/gev/feature.h"
#include "platform/gev/node_map.h"
#include "platform/gige/description/description_error.h"
#include "platform/gige/description/register_port.h"

namespace gige {

// Reads one tiny description. At first use ArvGc fills its tables, without a lock. Call this once in a
// process before the first camera_features; then those of different cameras need no common lock.
void prepare_descriptions();

// The features of one camera. All members, and those of the features, are called under the camera's lock.
//
// A register is read once. It is read again after a write that may have changed it: to the register itself,
// to a selector of the feature that is read, or to one of the feature's invalidators. Registers that the
// camera changes by itself (`NoCache`, a polling time, read-only without a declaration) are read as often as
// the description says. register_cache.h has an example.
class camera_features {
 public:
  struct setup {
    bool monitoring = false;  // nothing may be written
    // For polling times.
    std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
  };

  // Checks and reads the description, without a command to the camera. Raises description_error. `camera`
  // outlives this object.
  camera_features(std::string_view xml, register_port& camera, setup how);
  camera_features(const camera_features&) = delete;
  camera_features& operator=(const camera_features&) = delete;
  ~camera_features();

  // In the order of the description, without commands, categories and ports, which have no value. They live
  // as long as this object, and raise what gev::feature and the port do.
  const std::vector<gev::feature*>& all() const;
  // Null when there is no feature of that name.
  gev::feature* find(std::string_view name) const;

  // Adds a node for each feature, without a command to the camera.
  void fill(gev::node_map& nodes);

  // Executes the command; false when the camera has none of that name. Raises what a feature does.
  bool execute(const std::string& command);

  // The camera's registers by address, through the register cache of the features. So a known register costs
  // no command, and the features learn of each write.
  register_port& registers();
  // The camera may have changed these registers: the next access reads them again.
  void forget_registers(std::uint64_t address, std::uint64_t size);

 private:
  struct contents;
  std::unique_ptr<contents> contents_;
};

}  // namespace gige

#endif
