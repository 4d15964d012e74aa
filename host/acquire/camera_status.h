// How one camera is doing: kept by its acquisition's thread, read by the status line, the summary, --stats,
// the metrics and the live page.
#ifndef HOST_ACQUIRE_CAMERA_STATUS_H
#define HOST_ACQUIRE_CAMERA_STATUS_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "host/acquire/frame_taker.h"
#include "host/acquire/intervals.h"
#include "host/acquire/loss.h"
#include "host/acquire/steady_time.h"

namespace host {

/// Why a device could not be created, or why its run failed.
enum class failure_reason : std::uint8_t {
  configuration,  ///< the camera does not take its configuration
  unavailable,    ///< the camera does not answer, can't be reached, or another program controls it
  creation,       ///< no device could be created, and nothing was found against the camera
  silence,        ///< the camera sent no frames for too long
  setting,        ///< the camera refused a change of its settings
  memory,         ///< there was no memory
  run             ///< the run failed for another reason, which the log has
};
constexpr std::size_t kFailureReasons = 7;

/// Degrees Celsius; none for what the bundle gives when it read none.
std::optional<float> temperature_of(float sensorTempC);

struct camera_status {
  std::uint64_t frames = 0;       ///< arrived
  std::uint64_t missed = 0;       ///< were due and did not come, see missed_frames
  std::uint64_t silentWaits = 0;  ///< waits that brought no usable frame
  std::uint64_t failures = 0;     ///< devices that could not be created, or whose run failed
  std::array<std::uint64_t, kFailureReasons> failuresByReason{};  ///< they add up to `failures`
  std::uint64_t failuresInRow = 0;                                ///< since a frame was handed over
  std::uint64_t lastFrameUs = 0;                                  ///< arrival, steady_us; 0: none yet
  std::uint64_t elapsedUs = 0;                                    ///< since the first run started
  std::optional<float> exposureUs = std::nullopt;
  std::optional<float> gainDb = std::nullopt;
  std::optional<float> temperatureC = std::nullopt;
  std::optional<camera_extension_health_record> health = std::nullopt;  ///< over all openings
  bool isMissedEstimate = false;                                        ///< judged by arrival times
  bool isRunning = false;
  double periodUs = 0;        ///< between frames, as configured; 0 before the first run
  std::uint64_t phaseUs = 0;  ///< since it runs, or does not run; steady_us, 0: it never ran
  std::uint64_t againUs = 0;  ///< when its device is created again; steady_us, 0: it is not waited for
  std::string failure;        ///< why it does not run; empty: it runs, or has not begun to
  std::string advice;         ///< what to do about it
  std::string givenUp;        ///< why no device is created any more; empty: it is
};

class camera_status_keeper {
 public:
  // Called by the acquisition's thread only.
  /// Frames are expected so often, microseconds.
  void run_started(double periodUs);
  void run_ended();
  void failed(failure_reason reason);
  /// No device will be created any more, for that reason.
  void given_up(const std::string& reason, const std::string& advice);
  /// A device is created again after a pause.
  void pausing(const std::string& reason, const std::string& advice, std::chrono::milliseconds pause);
  /// The library's record of the camera's stream; within a frame's callbacks it has the number of that frame.
  void health(const camera_extension_health_record& record);
  /// A frame arrived. Gives the interval before it; none for the first frame of a run.
  std::optional<std::uint64_t> arrived(std::uint64_t nowUs, float temperatureC);
  void handed_over(const cam_frame_info& info);
  void silent();
  /// Something happened that shows that the camera's thread is alive.
  void alive() { activity_.fetch_add(1, std::memory_order_relaxed); }

  /// Frames missed until the last one arrived, see missed_frames.
  std::uint64_t missed() const;
  camera_status now() const;
  interval_histogram histogram() const;
  /// Grows as long as the camera's thread is alive.
  std::uint64_t activity() const { return activity_.load(std::memory_order_relaxed); }

 private:
  mutable std::mutex mutex_;
  camera_status status_;
  missed_frames missed_;
  stream_health health_;
  interval_histogram intervals_;
  std::optional<std::uint64_t> startUs_;  // of the first run
  std::atomic<std::uint64_t> activity_{0};
};

}  // namespace host

#endif
