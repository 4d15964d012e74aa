// What is known of one camera while the program runs: written by its acquisition thread, read by everybody.
#ifndef HOST_ACQUIRE_MONITOR_H
#define HOST_ACQUIRE_MONITOR_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "host/acquire/frame_taker.h"
#include "host/acquire/intervals.h"

namespace host {

/// Microseconds of the monotonic clock: the clock of all arrival times here.
std::uint64_t steady_us();

struct camera_totals {
  std::uint64_t frames = 0;         ///< arrived
  std::uint64_t missed = 0;         ///< judged by the intervals
  std::uint64_t silentWaits = 0;    ///< waits that brought no usable frame
  std::uint64_t failures = 0;       ///< devices that could not be made or failed
  std::uint64_t failuresInRow = 0;  ///< since a frame was handed over
  std::uint64_t lastFrameUs = 0;    ///< arrival, steady_us; 0: none yet
  std::uint64_t runningUs = 0;      ///< time of all runs together
  std::optional<float> exposureUs = std::nullopt;
  std::optional<float> gainDb = std::nullopt;
  std::optional<float> temperatureC = std::nullopt;
  bool isRunning = false;
  std::string givenUp;  ///< why no device is created any more; empty: it is
};

class camera_monitor {
 public:
  explicit camera_monitor(double periodUs) : intervals_(periodUs) {}

  // Told by the acquisition thread.
  void run_started(double periodUs);
  void run_ended();
  void failed();
  /// No device will be created any more, for that reason.
  void given_up(const std::string& reason);
  /// Gives the interval before it; none for the first frame of a run.
  std::optional<std::uint64_t> arrived(std::uint64_t nowUs, float temperatureC);
  void handed_over(const cam_frame_info& info);
  void silent();
  /// Something happened that shows that the camera's thread is alive.
  void alive() { activity_.fetch_add(1, std::memory_order_relaxed); }

  camera_totals totals() const;
  interval_histogram histogram() const;
  /// Grows as long as the camera's thread is alive.
  std::uint64_t activity() const { return activity_.load(std::memory_order_relaxed); }

 private:
  mutable std::mutex mutex_;
  camera_totals totals_;
  interval_tracker intervals_;
  std::uint64_t runStartUs_ = 0;
  std::atomic<std::uint64_t> activity_{0};
};

}  // namespace host

#endif
