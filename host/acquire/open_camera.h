// A camera that the host opens by itself, beside the bundle: to prepare it, or to find out why the bundle
// refuses it.
#ifndef HOST_ACQUIRE_OPEN_CAMERA_H
#define HOST_ACQUIRE_OPEN_CAMERA_H

#include <gevapi.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "host/acquire/library.h"

namespace host {

/// A camera that can't be opened; the text says why.
class camera_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Open from construction to destruction; with control, the bundle can't have it meanwhile. On one thread.
class open_camera {
 public:
  /// The library must be initialized (see bundle_session) and outlive this. camera_error.
  open_camera(const camera_library& library, const std::string& serial, GevAccessMode mode = GevControlMode);
  ~open_camera();
  open_camera(const open_camera&) = delete;
  open_camera& operator=(const open_camera&) = delete;

  /// A feature's value as text, an enumeration's as the name of its entry. None when the camera lacks the
  /// feature, it can't be read, or the library does not pass features as text.
  std::optional<std::string> read(const char* feature) const;
  /// Writes a feature from its text. False when it was refused; our libraries log why.
  bool write(const char* feature, const std::string& text) const;

 private:
  const camera_library& library_;
  GEV_CAMERA_HANDLE handle_ = nullptr;
};

/// What a status of the camera library means to people.
std::string status_text(GEV_STATUS status);

}  // namespace host

#endif
