// The cameras of a process: those that a search found, those that are open, and what is kept of closed ones.
#ifndef PLATFORM_GIGE_CAMERA_REGISTRY_H
#define PLATFORM_GIGE_CAMERA_REGISTRY_H

#include <camera_extension.h>
#include <gevapi.h>

#include <cstdint>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/gige/control/discovery.h"
#include "platform/gige/environment.h"
#include "platform/gige/network_camera.h"

namespace gige {

// A handle is a number that is given out once, so that a handle of a closed camera is recognised. The lock of
// the registry is never held during a command, so that no camera waits for another one.
//
// Threads: every function may be called from any thread.
class camera_registry {
 public:
  // The only one of the process. It is never destroyed, since a host may close cameras while the process
  // ends.
  static camera_registry& instance();

  // Reads the environment; raises std::invalid_argument for a wrong value. Calls are counted: as many calls
  // of `uninitialize` end it, which returns false where there is nothing to end.
  void initialize();
  bool uninitialize();
  bool is_initialized() const;

  // Cameras with these serial numbers come first in every search from now on.
  void prefer(std::vector<std::string> serials);
  // Searches the networks.
  std::vector<found_camera> search_networks();
  // Gives a camera an address; raises what gige::set_address does.
  void set_address(const gige_protocol::forced_ip& wanted) const;

  // Opens the camera; raises what its constructor does.
  GEV_CAMERA_HANDLE open(const GEV_DEVICE_INTERFACE& record, GevAccessMode mode);
  // Sets `found`, or returns why there is no such camera: NOT_INITIALIZED or INVALID_HANDLE.
  GEV_STATUS find(GEV_CAMERA_HANDLE handle, std::shared_ptr<network_camera>& found) const;
  // Null when no camera with that serial number is open.
  std::shared_ptr<network_camera> find(const std::string& serial) const;
  // False for a handle of no open camera.
  bool close(GEV_CAMERA_HANDLE handle);

  // The record of the open camera with that serial number, or the last record of a closed one. False when
  // none was open since the process began.
  bool read_health(const std::string& serial, camera_extension_health_record& record) const;
  // Ends all waits for the cameras with that serial number, also while one is being opened. False when there
  // is none.
  bool cancel(const std::string& serial);

 private:
  environment current_environment() const;
  endpoints endpoints_of(const GEV_DEVICE_INTERFACE& record) const;

  mutable std::shared_mutex mutex_;
  int initializations_ = 0;
  environment environment_;
  std::vector<std::string> preferred_;
  std::vector<found_camera> found_;  // of the last search
  std::vector<std::pair<GEV_CAMERA_HANDLE, std::shared_ptr<network_camera>>> open_;
  std::vector<std::weak_ptr<connection_state>> connections_;      // of cameras that are open or being opened
  std::map<std::string, camera_extension_health_record> closed_;  // last records, by serial number
  std::uintptr_t lastHandle_ = 0;
};

// The camera as gevapi.h describes it.
GEV_DEVICE_INTERFACE record_of(const found_camera& found);

}  // namespace gige

#endif
