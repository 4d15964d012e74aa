// The sensors that can be emulated, and the windows on them. All in pixels.
#ifndef PLATFORM_PICTURE_SENSOR_LIMITS_H
#define PLATFORM_PICTURE_SENSOR_LIMITS_H

#include <cstdint>

namespace picture {

// Width and height of sensors and windows are multiples of these.
constexpr std::uint32_t widthIncrement = 16;
constexpr std::uint32_t heightIncrement = 4;
// Of a window on a sensor that has so many.
constexpr std::uint32_t smallestWindowSide = 64;
constexpr std::uint32_t largestSensorSide = 16384;

}  // namespace picture

#endif
