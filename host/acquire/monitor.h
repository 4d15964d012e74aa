// What is known of one camera while the program runs: written by its acquisition thread, read by everybody.
#ifndef HOST_ACQUIRE_MONITOR_H
#define HOST_ACQUIRE_MONITOR_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/acquire/frame_taker.h"
#include "host/acquire/intervals.h"
#include "host/acquire/sweeps.h"
#include "host/config/config.h"

namespace host {

/// Whether the settings that a frame carries are those asked for: exposure within 1 percent, gain within
/// 0.1 dB. What was not asked for, or is not in a frame (gamma, IR level), always fits.
bool shows(const cam_frame_info& info, const light_settings& asked);

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
};

/// What came of one sweep, over all times that it was applied.
struct sweep_outcome {
  std::string name;
  std::uint64_t applied = 0;
  std::uint64_t shown = 0;       ///< times that frames showed it before the next one was applied
  std::uint64_t framesMost = 0;  ///< frames until they did, at most
  std::uint64_t longestGapUs = 0;
};

class camera_monitor {
 public:
  explicit camera_monitor(double periodUs) : intervals_(periodUs) {}

  // Told by the acquisition thread.
  void run_started(const std::vector<std::string>& sweepNames, double periodUs);
  void run_ended();
  void failed();
  void arrived(std::uint64_t nowUs, float temperatureC);
  void handed_over(const cam_frame_info& info);
  void silent();
  void sweep_applied(const sweep_step& step);
  /// Something happened that shows that the camera's thread is alive.
  void alive() { activity_.fetch_add(1, std::memory_order_relaxed); }

  camera_totals totals() const;
  interval_histogram histogram() const;
  std::vector<sweep_outcome> sweeps() const;
  /// Grows as long as the camera's thread is alive.
  std::uint64_t activity() const { return activity_.load(std::memory_order_relaxed); }

 private:
  // The sweep that was applied last, while its effect is watched.
  struct watch {
    sweep_step step;
    std::uint64_t frames = 0;    // handed over since
    std::uint64_t arrivals = 0;  // arrived since
    bool isShown = false;
  };

  mutable std::mutex mutex_;
  camera_totals totals_;
  interval_tracker intervals_;
  std::vector<sweep_outcome> sweeps_;
  std::optional<watch> watch_;
  std::uint64_t runStartUs_ = 0;
  std::atomic<std::uint64_t> activity_{0};
};

}  // namespace host

#endif
