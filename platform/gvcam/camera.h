// An emulated camera with its power switch, and what outlasts the power: name, faults and what a camera keeps
// for good.
#ifndef PLATFORM_GVCAM_CAMERA_H
#define PLATFORM_GVCAM_CAMERA_H

#include <memory>
#include <string>

#include "platform/gvcam/device.h"

namespace gvcam {

// For one thread.
class camera {
 public:
  // Off. `setup` and `scene` must outlive it.
  camera(camera_identity identity, const camera_setup& setup, const picture::scene& scene);

  const std::string& serial() const { return identity_.serial; }
  // Where it is after power-up; dotted.
  std::string address() const { return text_of(identity_.ip); }

  // Comes up with the power-up settings and the user name of before; a camera that is on stays as it is.
  // Raises std::runtime_error when its address cannot be had.
  void power_on();
  // Stops answering and sending, without a word to its clients.
  void power_off();

  // They outlast the power.
  const faults& current_faults() const { return faults_; }
  void set_faults(const faults& wanted);

 private:
  camera_identity identity_;
  const camera_setup& setup_;
  const picture::scene& scene_;
  faults faults_;
  std::unique_ptr<device> device_;  // nullptr: off
};

}  // namespace gvcam

#endif
