// What a simulated camera looks at.
#ifndef PLATFORM_PICTURE_SCENE_H
#define PLATFORM_PICTURE_SCENE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace picture {

// What the sensor looks at, at its resolution: a radiance for each pixel, part of which moves to the left
// with time and comes again.
class scene {
 public:
  // A test chart above a conveyor belt with parts on it, and a lamp that outshines the sensor.
  scene(std::size_t width, std::size_t height);
  // An 8-bit binary PGM, scaled to the sensor; it moves as a whole. Raises std::invalid_argument when
  // the file cannot be read.
  scene(const std::string& pgmPath, std::size_t width, std::size_t height);

  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }
  // One line of `width` pixels as it is at that time, microseconds.
  const std::uint16_t* line(std::size_t y, std::uint64_t timeUs) const;

  // The radiance of white paper in room light.
  static constexpr std::uint16_t white = 4096;

 private:
  std::size_t width_;
  std::size_t height_;
  std::size_t period_;       // pixels after which what moves comes again
  std::size_t firstMoving_;  // the lines that move
  std::size_t afterMoving_;
  std::vector<std::uint16_t> radiance_;  // lines of period + width pixels
};

}  // namespace picture

#endif
