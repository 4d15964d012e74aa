// What the library knows in a process: whether it is in use, the cameras that were found, and those that are
// open.
#ifndef PLATFORM_ARAVIS_LIBRARY_H
#define PLATFORM_ARAVIS_LIBRARY_H

#include <gevapi.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

#include "platform/aravis/camera.h"
#include "platform/aravis/discovery.h"
#include "platform/aravis/environment.h"

namespace gige {

// A handle is a number that is never given out again, so that a stale one is recognised. Its lock is never
// held while a camera works.
class library {
 public:
  // The one of the process; it is never destroyed, a host may still close cameras while the process ends.
  static library& instance();

  // Raises std::invalid_argument when the environment is wrong.
  void initialize();
  bool uninitialize();
  bool initialized() const;

  // Searches the networks.
  std::vector<GEV_DEVICE_INTERFACE> search();

  GEV_STATUS open(const GEV_DEVICE_INTERFACE& record, GevAccessMode mode, GEV_CAMERA_HANDLE& handle);
  // Sets `found` to the camera, or tells why there is none.
  GEV_STATUS find(GEV_CAMERA_HANDLE handle, std::shared_ptr<camera>& found) const;
  // False when the handle is none.
  bool close(GEV_CAMERA_HANDLE handle);

 private:
  mutable std::shared_mutex mutex_;
  int initializations_ = 0;
  environment environment_;
  std::vector<found_camera> found_;  // of the last search
  std::vector<std::pair<GEV_CAMERA_HANDLE, std::shared_ptr<camera>>> open_;
  std::uintptr_t lastHandle_ = 0;
};

}  // namespace gige

#endif
