// The exceptions that end a run from onNoFrame: the bundle asks for a signal only after a frame. It logs them
// and ends the run as a failure.
#ifndef HOST_ACQUIRE_SILENT_END_H
#define HOST_ACQUIRE_SILENT_END_H

#include <exception>

namespace host {

/// The host ends the run while no frames arrive.
class silent_end : public std::exception {
 public:
  const char* what() const noexcept override {
    return "no failure: the host ends the run while no frames arrive";
  }
};

/// The camera sent no frames for so long that its device is created again.
class camera_silent : public std::exception {
 public:
  const char* what() const noexcept override { return "the camera sends no frames"; }
};

}  // namespace host

#endif
