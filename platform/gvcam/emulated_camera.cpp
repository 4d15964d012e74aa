#include "platform/gvcam/emulated_camera.h"

#include <stdexcept>
#include <system_error>
#include <utility>

namespace gvcam {

emulated_camera::emulated_camera(camera_identity identity, const camera_setup& setup,
                                 const picture::scene& scene)
    : identity_(std::move(identity)), setup_(setup), scene_(scene) {}

void emulated_camera::power_on() {
  if (device_) {
    return;
  }
  try {
    device_ = std::make_unique<device>(identity_, setup_, scene_, faults_);
  } catch (const std::system_error& error) {
    throw std::runtime_error(serial() + " cannot listen on " + address() +
                             ", UDP port 3956: " + error.code().message());
  }
}

void emulated_camera::power_off() {
  if (device_) {
    identity_.userName = device_->user_name();
    device_.reset();
  }
}

void emulated_camera::set_faults(const faults& wanted) {
  faults_ = wanted;
  if (device_) {
    device_->set_faults(wanted);
  }
}

}  // namespace gvcam
