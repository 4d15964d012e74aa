// When which settings of a camera change while it runs.
#ifndef HOST_ACQUIRE_SWEEPS_H
#define HOST_ACQUIRE_SWEEPS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/config/config.h"

namespace host {

/// One change of settings that is due.
struct sweep_step {
  std::size_t index;  ///< of its entry in `sweep_schedule::names`
  light_settings settings;
};

/// The sweeps of one camera during one run: all of them in their order, then those that loop, again and
/// again. The bundle switches gamma off as a run starts; a camera with a gamma of its own therefore begins
/// with a sweep that sets it.
class sweep_schedule {
 public:
  sweep_schedule(const camera_config& camera, const std::vector<sweep_config>& sweeps);

  /// A run begins: its first frame arrives at `nowUs` of any clock.
  void start(std::uint64_t nowUs);
  /// The step that is due when frame number `frames` of the run (the first is 1) has been handled; to be
  /// applied now.
  std::optional<sweep_step> due(std::uint64_t nowUs, std::uint64_t frames);
  /// Leaves an entry out, in this run and all later ones: the camera does not take it.
  void drop(std::size_t index) { isDropped_[index] = true; }

  /// What each entry changes, for people: "sweep 1: exposure 2500 us, gain 6 dB".
  const std::vector<std::string>& names() const { return names_; }

 private:
  bool is_due(const sweep_config& sweep, std::uint64_t nowUs, std::uint64_t frames) const;
  void advance();
  std::size_t from(std::size_t index) const;

  std::vector<sweep_config> entries_;
  std::vector<std::string> names_;
  std::vector<bool> isDropped_;

  std::size_t next_ = 0;  // entries_.size() when there is nothing more to come
  bool looping_ = false;
  std::uint64_t lastUs_ = 0;
  std::uint64_t lastFrame_ = 0;
};

/// "exposure 2500 us, gain 6 dB, gamma 2, IR level 1", of what is there.
std::string settings_text(const light_settings& settings);

/// What is in force after `change` was applied.
light_settings merged(light_settings before, const light_settings& change);

}  // namespace host

#endif
