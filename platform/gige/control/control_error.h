// Why a camera did not do what it was asked to. The text of each says in words what was asked, of whom, and
// what came of it: "READREG of 0x00000a00 at 192.168.0.10: refused, access denied".
#ifndef PLATFORM_GIGE_CONTROL_CONTROL_ERROR_H
#define PLATFORM_GIGE_CONTROL_CONTROL_ERROR_H

#include <stdexcept>
#include <string>

#include "platform/gige_protocol/status.h"

namespace gige {

// Itself when none of the others fits: no way to the camera, or a range of memory that cannot be.
class control_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// No answer came in time, or the camera was still busy when the limit for that had passed.
class not_answered : public control_error {
 public:
  using control_error::control_error;
};

// The camera answered that it will not.
class refused : public control_error {
 public:
  refused(const std::string& text, gige_protocol::status why) : control_error(text), why_(why) {}
  gige_protocol::status why() const { return why_; }

 private:
  gige_protocol::status why_;
};

// Another client controls the camera; the text names it, as far as the camera does.
class control_denied : public control_error {
 public:
  using control_error::control_error;
};

// The camera was lost, during the call or before it.
class camera_lost : public control_error {
 public:
  using control_error::control_error;
};

// Somebody asked for all waiting to end.
class wait_cancelled : public camera_lost {
 public:
  using camera_lost::camera_lost;
};

}  // namespace gige

#endif
