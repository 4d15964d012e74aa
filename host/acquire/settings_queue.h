// Other settings for a camera that runs: one order for whoever asks, and an account of what came of it.
#ifndef HOST_ACQUIRE_SETTINGS_QUEUE_H
#define HOST_ACQUIRE_SETTINGS_QUEUE_H

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/acquire/frame_taker.h"
#include "host/acquire/limits.h"
#include "host/config/config.h"

namespace host {

/// Whether the settings that a frame carries are those asked for: exposure within 1 percent, gain within
/// 0.1 dB. What was not asked for, or is not in a frame (gamma, IR level), is not looked at.
bool shows(const cam_frame_info& info, const light_settings& asked);
/// Whether a frame carries any of what is asked for.
bool is_in_frames(const light_settings& asked);

/// What became of a wish for other settings.
struct queue_answer {
  std::uint64_t id = 0;              ///< of the request; 0: it is not queued
  std::vector<std::string> reasons;  ///< why it is not, a line for each; empty: it is
};

/// One request, and what came of it. Frames are numbered as they are handed over, from 1.
struct setting_request {
  std::uint64_t id = 0;  ///< from 1 on, in the order in which they were asked for
  std::string asker;     ///< who asked, for what: "sweep 1: exposure 2500 us"
  light_settings settings;
  std::uint64_t appliedBefore = 0;  ///< number of the frame after it; 0: not applied yet
  std::uint64_t readBackWith = 0;   ///< number of the first frame that carried it; 0: none did
  std::string refusal;              ///< why it was refused; empty: it was not
  std::uint64_t longestGapUs = 0;   ///< between the arrivals of the frames after it
};

/// All requests of one asker together.
struct setting_outcome {
  std::string asker;
  light_settings settings;
  std::uint64_t applied = 0;
  std::uint64_t appliedBefore = 0;  ///< the last time
  std::uint64_t readBack = 0;       ///< times that a frame carried it before the next request was applied
  std::uint64_t readBackWith = 0;   ///< the last time
  std::uint64_t framesMost = 0;     ///< frames until one carried it, at most
  std::uint64_t longestGapUs = 0;   ///< between the arrivals of the frames after it
  std::string refusal;              ///< why it was refused last
};

/// The queue of one camera, over all of its devices. `run_started` to `exposure_us` are called on the
/// acquisition's thread only, the others on any.
class settings_queue {
 public:
  /// Requests that wait at most.
  static constexpr std::size_t kWaitingMax = 64;

  /// Asks for settings. What the camera does not take is not queued.
  queue_answer add(const std::string& asker, const light_settings& settings);
  /// The last hundred requests in the order in which they were decided, then those that wait.
  std::vector<setting_request> account() const;
  std::vector<setting_outcome> outcomes() const;
  /// What the camera has once all that waits is applied. Gain is absent until a frame carried it.
  light_settings in_force() const;
  /// As they were when the run started.
  light_limits limits() const;

  /// A run starts with these settings; what waits for an earlier one is gone. `askers` are those whose
  /// outcomes are wanted although they have not asked yet; others than before begin a new account.
  void run_started(const std::vector<std::string>& askers, const light_settings& inForce,
                   const light_limits& limits);
  /// The next request's settings, complete with the exposure and IR level in force, which the bundle
  /// requires: to be applied now, before frame number `next`.
  std::optional<light_settings> take(std::uint64_t next);
  /// The bundle went on after the request that was taken last, with or without a frame: it was not refused.
  void survived();
  /// A frame arrived, so long after the one before; none for the first of a run.
  void arrived(const std::optional<std::uint64_t>& intervalUs);
  void handed_over(const cam_frame_info& info, std::uint64_t number);
  /// Whether the request that was taken last may be what ended the run: nothing shows that it was survived.
  bool is_unproven() const;
  /// The run failed. Gives the asker of the request that did it, one that it did not survive, and puts
  /// `reason` to its account.
  std::optional<std::string> run_failed(const std::string& reason);
  /// Microseconds; what the camera was told last.
  float exposure_us() const;

 private:
  setting_outcome& outcome_of(const setting_request& request);

  mutable std::mutex mutex_;
  light_limits limits_;
  light_settings inForce_;
  std::deque<setting_request> waiting_;
  std::deque<setting_request> past_;
  std::optional<setting_request> watched_;  // applied last, its effect not known yet; then it goes to past_
  bool isProven_ = false;                   // it was survived
  std::uint64_t arrivals_ = 0;              // frames after it
  std::uint64_t asked_ = 0;
  std::vector<setting_outcome> outcomes_;
  std::vector<std::string> askers_;
};

}  // namespace host

#endif
