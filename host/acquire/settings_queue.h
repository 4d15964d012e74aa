// Changes of the settings of a running camera: one queue for everybody, and an account of each request.
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

/// Whether a frame carries these settings: exposure within 1 percent, gain within 0.1 dB. Settings that are
/// absent, or that no frame carries (gamma, IR level), do not count.
bool shows(const cam_frame_info& info, const light_settings& wanted);
/// Whether frames carry any of these settings.
bool is_in_frames(const light_settings& wanted);

/// The answer to a request.
struct queue_answer {
  std::uint64_t id = 0;              ///< of the request; 0: it was refused
  std::vector<std::string> reasons;  ///< of the refusal; empty: the request is queued
};

/// One request, and what came of it. Frames are numbered as they are handed over, from 1.
struct setting_request {
  std::uint64_t id = 0;   ///< from 1 on, in the order of the requests
  std::string requester;  ///< who made it, and for what: "sweep 1: exposure 2500 us"
  light_settings settings;
  std::uint64_t appliedBefore = 0;  ///< number of the frame after it; 0: not applied yet
  std::uint64_t readBackWith = 0;   ///< number of the first frame that carried it; 0: none did
  std::string refusal;              ///< why it was refused; empty: it was not
  std::uint64_t longestGapUs = 0;   ///< between the arrivals of the frames after it
};

/// All requests of one requester.
struct setting_outcome {
  std::string requester;
  light_settings settings;
  std::uint64_t applied = 0;
  std::uint64_t appliedBefore = 0;  ///< the last time
  std::uint64_t readBack = 0;       ///< times that a frame carried it before the next request was applied
  std::uint64_t readBackWith = 0;   ///< the last time
  std::uint64_t framesMost = 0;     ///< frames until one carried it, at most
  std::uint64_t longestGapUs = 0;   ///< between the arrivals of the frames after it
  std::string refusal;              ///< why it was refused last
};

/// The queue of one camera, over all of its devices. `run_started` and what follows it are called on the
/// acquisition's thread only, the others on any.
class settings_queue {
 public:
  /// So many requests may wait.
  static constexpr std::size_t kWaitingMax = 64;

  /// Queues settings. Those beyond the camera's limits are refused.
  queue_answer add(const std::string& requester, const light_settings& settings);
  /// The last hundred requests that were applied or refused, in that order, then those that wait.
  std::vector<setting_request> account() const;
  std::vector<setting_outcome> outcomes() const;
  /// What the camera will have once all waiting requests are applied. Gain is absent until a frame carried
  /// it.
  light_settings in_force() const;
  /// The camera's limits when the run started.
  light_limits limits() const;

  /// A run starts with these settings. Requests that wait for an earlier run are dropped. `requesters` have
  /// an outcome from now on, also before their first request; other requesters than before begin a new
  /// account.
  void run_started(const std::vector<std::string>& requesters, const light_settings& inForce,
                   const light_limits& limits);
  /// The next request's settings, complete with the exposure and IR level in force, which the bundle
  /// requires: to be applied now, before frame number `next`.
  std::optional<light_settings> take(std::uint64_t next);
  /// The bundle went on after the request that was taken last, with or without a frame: the camera took it.
  void survived();
  /// A frame arrived, so long after the one before; none for the first of a run.
  void arrived(const std::optional<std::uint64_t>& intervalUs);
  void handed_over(const cam_frame_info& info, std::uint64_t number);
  /// Whether the request that was taken last may be what ended the run: nothing shows that it was survived.
  bool is_unproven() const;
  /// The run failed. Gives the requester of the request that did it, one that it did not survive, and puts
  /// `reason` to its account.
  std::optional<std::string> run_failed(const std::string& reason);
  /// Microseconds; the exposure in force.
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
  std::uint64_t lastId_ = 0;
  std::vector<setting_outcome> outcomes_;
  std::vector<std::string> requesters_;
};

}  // namespace host

#endif
