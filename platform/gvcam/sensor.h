// The sensor of a camera.
#ifndef PLATFORM_GVCAM_SENSOR_H
#define PLATFORM_GVCAM_SENSOR_H

#include <cstdint>
#include <memory>

#include "platform/gvcam/frame.h"
#include "platform/gvcam/frame_settings.h"
#include "platform/picture/scene.h"

namespace gvcam {

// Not for several threads at once.
class sensor {
 public:
  // `scene` must outlive it. A still sensor draws the first frame of each acquisition and repeats it.
  sensor(const picture::scene& scene, bool hasNoise, bool isStill)
      : scene_(scene), hasNoise_(hasNoise), isStill_(isStill) {}

  // The pixels of frame `number`; the first one of an acquisition is 1. Black when the window is not within
  // the sensor.
  std::shared_ptr<const pixel_memory> expose(const frame_settings& settings, std::uint64_t number);

 private:
  void draw(const frame_settings& settings, std::uint64_t number, pixel_memory& pixels) const;

  const picture::scene& scene_;
  bool hasNoise_;
  bool isStill_;
  std::shared_ptr<const pixel_memory> latest_;
};

}  // namespace gvcam

#endif
