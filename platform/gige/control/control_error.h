// Why a command failed. Each text names the command, the camera and the reason: "READREG of 0x00000a00 at
// 192.168.0.10: refused, access denied".
#ifndef PLATFORM_GIGE_CONTROL_CONTROL_ERROR_H
#define PLATFORM_GIGE_CONTROL_CONTROL_ERROR_H

#include <stdexcept>
#include <string>

#include "platform/gige_protocol/status.h"

namespace gige {

// The base of the others. By itself: no route to the camera, or a range beyond its address space.
class control_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// No answer came in time, or the camera was busy for longer than it may be.
class not_answered : public control_error {
 public:
  using control_error::control_error;
};

// The camera answered with an error status.
class refused : public control_error {
 public:
  refused(const std::string& text, gige_protocol::status why) : control_error(text), why_(why) {}
  gige_protocol::status why() const { return why_; }

 private:
  gige_protocol::status why_;
};

// Another client controls the camera. The text names the client if the camera does.
class control_denied : public control_error {
 public:
  using control_error::control_error;
};

// The camera was lost, during the call or before it.
class camera_lost : public control_error {
 public:
  using control_error::control_error;
};

// connection_state::cancel was called.
class wait_cancelled : public camera_lost {
 public:
  using camera_lost::camera_lost;
};

}  // namespace gige

#endif
