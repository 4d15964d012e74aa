// An emulated camera that can be switched off and on. Its identity, its user-defined name and its faults last
// while it is off.
#ifndef PLATFORM_GVCAM_EMULATED_CAMERA_H
#define PLATFORM_GVCAM_EMULATED_CAMERA_H

#include <memory>
#include <string>

#include "platform/gvcam/device.h"

namespace gvcam {

// Members are for one thread.
class emulated_camera {
 public:
  // The camera is off. `setup` and `scene` must outlive it.
  emulated_camera(camera_identity identity, const camera_setup& setup, const picture::scene& scene);

  const std::string& serial() const { return identity_.serial; }
  // The address that it has after power-up, dotted.
  std::string address() const { return text_of(identity_.ip); }

  // Switches it on, with power-up settings and its last user-defined name. Nothing happens to a camera that
  // is on. Raises std::runtime_error when it cannot listen at its address.
  void power_on();
  // Switches it off. Its clients get no more packets of any kind.
  void power_off();

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
