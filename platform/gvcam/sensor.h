// What a camera sees.
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
  // `what` must outlive it. Still: draws the first frame of an acquisition, and repeats it.
  sensor(const picture::scene& what, bool noise, bool still)
      : scene_(what), hasNoise_(noise), isStill_(still) {}

  // The pixels of frame `number`, which is 1 for the first of an acquisition. Black when the window does not
  // lie within the sensor.
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
