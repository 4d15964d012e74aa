// What the library knows in a process: whether it is in use, the cameras that were found, and those that are
// open.
#ifndef PLATFORM_GIGE_LIBRARY_H
#define PLATFORM_GIGE_LIBRARY_H

#include <camera_extension.h>
#include <gevapi.h>

#include <cstdint>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/gige/camera.h"
#include "platform/gige/control/discovery.h"
#include "platform/gige/environment.h"

namespace gige {

// A handle is a number that is never given out again, so that a stale one is recognised. The library's lock
// is never held while a camera works, so that no camera waits for another one.
class library {
 public:
  // The one of the process; it is never destroyed, a host may still close cameras while the process ends.
  static library& instance();

  // Raises std::invalid_argument when the environment is wrong.
  void initialize();
  bool uninitialize();
  bool initialized() const;

  // Cameras with these serial numbers come first in every search from now on.
  void prefer(std::vector<std::string> serials);
  // Searches the networks.
  std::vector<found_camera> search_networks();
  // Gives a camera an address; raises what gige::set_address does.
  void set_address(const gige_protocol::forced_ip& wanted) const;

  // Opens the camera; raises what its constructor does.
  GEV_CAMERA_HANDLE open(const GEV_DEVICE_INTERFACE& record, GevAccessMode mode);
  // Sets `found` to the camera, or tells why there is none.
  GEV_STATUS find(GEV_CAMERA_HANDLE handle, std::shared_ptr<camera>& found) const;
  // Null when no camera with that serial number is open.
  std::shared_ptr<camera> find(const std::string& serial) const;
  // False when the handle is none.
  bool close(GEV_CAMERA_HANDLE handle);

  // The record of the open camera with that serial number, or of its last opening. False when it never was
  // open.
  bool read_health(const std::string& serial, camera_extension_health_record& record) const;
  // Ends what is waited for in cameras with that serial number, those that are being opened included. False
  // when there is none.
  bool cancel(const std::string& serial);

 private:
  environment surroundings() const;
  camera_place place_of(const GEV_DEVICE_INTERFACE& record) const;

  mutable std::shared_mutex mutex_;
  int initializations_ = 0;
  environment environment_;
  std::vector<std::string> preferred_;
  std::vector<found_camera> found_;  // of the last search
  std::vector<std::pair<GEV_CAMERA_HANDLE, std::shared_ptr<camera>>> open_;
  std::vector<std::weak_ptr<link>> links_;                        // of cameras that are open or being opened
  std::map<std::string, camera_extension_health_record> closed_;  // last records, by serial number
  std::uintptr_t lastHandle_ = 0;
};

// The camera as gevapi.h describes it.
GEV_DEVICE_INTERFACE record_of(const found_camera& found);

}  // namespace gige

#endif
