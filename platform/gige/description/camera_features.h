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

// Reads one tiny description, so that the tables are there which ArvGc sets up at first use without a lock.
// To be called once in a process before the first camera_features is made; then those of different cameras
// need no common lock.
void prepare_descriptions();

// The features of one camera. All members, and those of the features, are called under the camera's lock.
//
// Registers are read once and known until something may have changed them: a write to them, to a selector of
// the feature that is asked for, or to one of its invalidators. What the camera changes itself (`NoCache`, a
// polling time, a read-only register without a declaration) is read as often as the description says.
class camera_features {
 public:
  struct setup {
    bool monitoring = false;  // nothing may be written
    // For polling times.
    std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
  };

  // Checks and reads the description; asks nothing of the camera. Raises description_error. The port outlives
  // this object.
  camera_features(std::string_view xml, register_port& camera, setup how);
  camera_features(const camera_features&) = delete;
  camera_features& operator=(const camera_features&) = delete;
  ~camera_features();

  // In the order of the description; without commands, categories and ports, which have no value. They live
  // as long as this object and raise what gev::feature says and what the port raises.
  const std::vector<gev::feature*>& all() const;
  // Null when there is no feature of that name.
  gev::feature* find(std::string_view name) const;

  // Adds a node for each feature, without asking the camera anything.
  void fill(gev::node_map& nodes);

  // Executes the command, or returns false when the camera has none of that name. Raises as a feature does.
  bool execute(const std::string& command);

  // The camera's registers as the features know them: what is known is not asked for again, and what is
  // written is noticed by the features.
  register_port& registers();
  // Something else wrote these registers: they are read again.
  void forget_registers(std::uint64_t address, std::uint64_t size);

 private:
  struct contents;
  std::unique_ptr<contents> contents_;
};

}  // namespace gige

#endif
