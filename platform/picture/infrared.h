// What an infrared light that hangs on a camera's output line adds to an exposure.
#ifndef PLATFORM_PICTURE_INFRARED_H
#define PLATFORM_PICTURE_INFRARED_H

#include <algorithm>

namespace picture {

// An output line, as its features set it.
struct light_line {
  bool followsExposure = false;  // pulses with each exposure; otherwise it is idle
  bool isInverted = false;
  double pulseDelayUs = 0;  // from the start of the exposure
  double pulseDurationUs = 0;
};

// How long within an exposure the light is lit, microseconds: the pulse as far as it lies within the
// exposure, or, inverted, the rest of the exposure.
inline double lit_us(const light_line& line, double exposureUs) {
  const double end = line.pulseDelayUs + line.pulseDurationUs;
  const double pulse = std::clamp(end, 0.0, exposureUs) - std::clamp(line.pulseDelayUs, 0.0, exposureUs);
  const double active = line.followsExposure ? pulse : 0;
  return line.isInverted ? exposureUs - active : active;
}

}  // namespace picture

#endif
