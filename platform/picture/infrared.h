// How long an infrared light on an output line of the camera is lit during an exposure.
#ifndef PLATFORM_PICTURE_INFRARED_H
#define PLATFORM_PICTURE_INFRARED_H

#include <algorithm>

namespace picture {

// The features of an output line.
struct output_line {
  bool followsExposure =
      false;  // outputLineSource is ExposureActive: a pulse for each exposure; else no pulse
  bool isInverted = false;
  double pulseDelayUs = 0;  // from the start of the exposure
  double pulseDurationUs = 0;
};

// Microseconds of the exposure in which the light is lit: the part of the pulse that lies within the
// exposure. With an inverted line it is the rest of the exposure. A pulse of 3000 us after a delay of 4000 us
// lights 1000 us of an exposure of 5000 us, or, inverted, 4000 us.
inline double lit_us(const output_line& line, double exposureUs) {
  const double end = line.pulseDelayUs + line.pulseDurationUs;
  const double pulse = std::clamp(end, 0.0, exposureUs) - std::clamp(line.pulseDelayUs, 0.0, exposureUs);
  const double active = line.followsExposure ? pulse : 0;
  return line.isInverted ? exposureUs - active : active;
}

}  // namespace picture

#endif
