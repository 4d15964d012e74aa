// All simulated cameras of the process, and the handles under which they are open.
#ifndef PLATFORM_SIM_CAMERA_REGISTRY_H
#define PLATFORM_SIM_CAMERA_REGISTRY_H

#include <gevapi.h>

#include <atomic>
#include <memory>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/sim/sim.h"
#include "platform/sim/simulated_camera.h"

namespace sim {

// A handle is a number that is never used twice, so that a stale one is recognised. The camera_registry's
// lock is not held during calls of a camera.
class camera_registry {
 public:
  // That of the process. It is never destroyed, because a host may close cameras while the process ends.
  static camera_registry& instance();

  // GevApiInitialize. Raises std::invalid_argument when SIM_CAMERAS cannot be read.
  void initialize();
  // GevApiUninitialize. False without an initialisation before it.
  bool uninitialize();
  bool initialized() const { return initializations_.load(std::memory_order_acquire) > 0; }

  // Adds the cameras of a description: all of them, or none and std::invalid_argument.
  void add(const std::string& description);
  void clear();
  // All cameras, preferred ones first.
  std::vector<std::shared_ptr<simulated_camera>> cameras() const;
  // The serial numbers that `cameras` lists first, in this order.
  void prefer(std::vector<std::string> serials);
  // The first camera with that serial number; null when there is none.
  std::shared_ptr<simulated_camera> by_serial(const std::string& serial) const;
  std::shared_ptr<simulated_camera> by_handle(GEV_CAMERA_HANDLE handle) const;

  GEV_STATUS open(const GEV_DEVICE_INTERFACE& record, GevAccessMode mode, GEV_CAMERA_HANDLE& handle);
  // False for a handle that is not open.
  bool close(GEV_CAMERA_HANDLE handle);
  open_counts counts() const;

 private:
  mutable std::shared_mutex mutex_;
  std::vector<std::shared_ptr<simulated_camera>> cameras_;
  std::vector<std::pair<GEV_CAMERA_HANDLE, std::shared_ptr<simulated_camera>>> open_;
  std::vector<std::string> preferred_;
  std::uintptr_t lastHandle_ = 0;
  bool isDefaultAllowed_ = true;  // until the first reset
  std::atomic<int> initializations_{0};
};

}  // namespace sim

#endif
