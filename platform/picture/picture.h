// The picture model: what a monochrome sensor makes of a scene. Everything is a pure function of the
// settings, so that the same settings give the same picture on every machine and every thread.
#ifndef PLATFORM_PICTURE_PICTURE_H
#define PLATFORM_PICTURE_PICTURE_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/picture/scene.h"

namespace picture {

enum class tone_curve { linear, gamma, negative };

struct picture_settings {
  std::uint64_t timeUs = 0;     // start of the exposure; moves the scene
  std::uint64_t noiseSeed = 0;  // another one for each picture
  bool noise = true;            // shot and read noise
  double exposureUs = 5000;
  double gain = 1;  // linear factor
  // How long within the exposure the infrared lights left and right of the scene are lit, microseconds.
  std::array<double, 2> infraredUs{};
  tone_curve tone = tone_curve::linear;
  double gamma = 1;  // of tone_curve::gamma: out = in ^ (1 / gamma)
  // The window, in the mirrored picture; pixels.
  std::size_t offsetX = 0;
  std::size_t offsetY = 0;
  std::size_t width = 0;
  std::size_t height = 0;
  bool reverseX = false;
  bool reverseY = false;
};

// Draws the window, width x height bytes of grey without gaps between the lines. The window must lie
// within the scene.
void draw(const scene& what, const picture_settings& settings, std::uint8_t* pixels);

}  // namespace picture

#endif
