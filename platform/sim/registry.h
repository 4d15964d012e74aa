// All simulated cameras of the process, and the handles under which they are open.
#ifndef PLATFORM_SIM_REGISTRY_H
#define PLATFORM_SIM_REGISTRY_H

#include <gevapi.h>

#include <atomic>
#include <memory>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/sim/camera.h"
#include "platform/sim/sim.h"

namespace sim {

// A handle is a number that is never given out again, so that a stale one is recognised. Its lock is never
// held while a camera works.
class registry {
 public:
  // The one of the process; it is never destroyed, a host may still close cameras while the process ends.
  static registry& instance();

  // Counts the initialisation; raises std::invalid_argument when SIM_CAMERAS is wrong.
  void initialize();
  bool uninitialize();
  bool initialized() const { return initializations_.load(std::memory_order_acquire) > 0; }

  // Raises std::invalid_argument, and then adds none.
  void add(const std::string& description);
  void clear();
  // Those that are preferred come first.
  std::vector<std::shared_ptr<camera>> cameras() const;
  // Serial numbers in the order in which `cameras` gives them from now on, before all others.
  void prefer(std::vector<std::string> serials);
  // Null when there is none; serial numbers may repeat, the first camera counts.
  std::shared_ptr<camera> by_serial(const std::string& serial) const;
  std::shared_ptr<camera> by_handle(GEV_CAMERA_HANDLE handle) const;

  GEV_STATUS open(const GEV_DEVICE_INTERFACE& record, GevAccessMode mode, GEV_CAMERA_HANDLE& handle);
  // False when the handle is none.
  bool close(GEV_CAMERA_HANDLE handle);
  open_counts counts() const;

 private:
  mutable std::shared_mutex mutex_;
  std::vector<std::shared_ptr<camera>> cameras_;
  std::vector<std::pair<GEV_CAMERA_HANDLE, std::shared_ptr<camera>>> open_;
  std::vector<std::string> preferred_;
  std::uintptr_t lastHandle_ = 0;
  bool defaultsAllowed_ = true;  // until the first reset
  std::atomic<int> initializations_{0};
};

}  // namespace sim

#endif
