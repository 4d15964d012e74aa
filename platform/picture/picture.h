// The picture that a monochrome sensor takes of a scene. It depends on the scene and the settings alone, so
// that the same settings give the same picture on every machine and every thread.
#ifndef PLATFORM_PICTURE_PICTURE_H
#define PLATFORM_PICTURE_PICTURE_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/picture/scene.h"

namespace picture {

// Codes of the Pixel Format Naming Convention.
constexpr std::uint32_t pixelFormatMono8 = 0x01080001;   // one byte a pixel
constexpr std::uint32_t pixelFormatMono10 = 0x01100003;  // two bytes a pixel, low byte first

enum class tone_curve { linear, gamma, negative };

struct picture_settings {
  std::uint64_t timeUs = 0;     // start of the exposure; moves the scene
  std::uint64_t noiseSeed = 0;  // pictures with different seeds have different noise
  bool noise = true;            // shot and read noise
  double exposureUs = 5000;
  double gain = 1;  // linear factor
  // Microseconds of the exposure in which the infrared lights left and right of the scene are lit.
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

// Draws the window as Mono8: width x height bytes without gaps between the lines. The window must lie within
// the scene.
void draw(const scene& what, const picture_settings& settings, std::uint8_t* pixels);

// Makes Mono10 of `count` pixels in Mono8, in place: each grey times four. There must be room for 2 x count
// bytes.
void widen_to_mono10(std::uint8_t* pixels, std::size_t count);

}  // namespace picture

#endif
