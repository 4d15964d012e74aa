// Settings that a person applies to a running camera, while the configuration's sweeps wait.
#ifndef HOST_ACQUIRE_MANUAL_SETTINGS_H
#define HOST_ACQUIRE_MANUAL_SETTINGS_H

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/acquire/settings_queue.h"

namespace host {

/// All of them go through the camera's queue. From the first one until `resume` the sweeps are held, and a
/// device that is created again gets the settings again. On any thread; `requester` is shown to people.
class manual_settings {
 public:
  /// `queue` must outlive it.
  explicit manual_settings(settings_queue& queue) : queue_(queue) {}

  queue_answer apply(const std::string& requester, const light_settings& settings);
  /// Back to what was in force before the last settings by hand; refused when there are none.
  queue_answer undo(const std::string& requester);
  /// Back to the configuration, and where that leaves a setting out, to what was in force before the first
  /// settings by hand.
  queue_answer restore(const std::string& requester);
  /// Lets the sweeps go on. What is in force stays until one changes it.
  void resume();

  bool are_sweeps_held() const;
  bool can_undo() const;
  light_settings configured() const;
  /// What `restore` gives.
  light_settings restored() const;

  /// A run starts with the configuration's settings: those by hand are queued again. After
  /// settings_queue::run_started.
  void run_started(const light_settings& configured);
  /// The camera refused the last settings of this requester and ended the run: they are not applied again.
  void refused(const std::string& requester);

 private:
  // One step back: what was in force before, and what had been given by then.
  struct step {
    std::string requester;
    light_settings before;
    light_settings given;
  };
  queue_answer give(const std::string& requester, const light_settings& settings);

  settings_queue& queue_;
  mutable std::mutex mutex_;
  light_settings configured_;
  light_settings given_;                 // what a device that is created again gets
  std::vector<step> steps_;              // newest last
  std::optional<light_settings> first_;  // in force before the first settings by hand
};

}  // namespace host

#endif
