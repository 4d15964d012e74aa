// The scene in front of an emulated camera.
#ifndef PLATFORM_PICTURE_SCENE_H
#define PLATFORM_PICTURE_SCENE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace picture {

// A radiance for each pixel of the sensor. Some lines move to the left and come again after a period.
class scene {
 public:
  // A test chart above a conveyor belt with parts on it, and a lamp that outshines the sensor.
  scene(std::size_t width, std::size_t height);
  // An 8-bit binary PGM, scaled to the sensor; it moves as a whole. Raises std::invalid_argument when
  // the file cannot be read.
  scene(const std::string& pgmPath, std::size_t width, std::size_t height);

  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }
  // The line of `width` pixels at that time, microseconds.
  const std::uint16_t* line(std::size_t y, std::uint64_t timeUs) const;

  // The radiance of white paper in room light.
  static constexpr std::uint16_t white = 4096;

 private:
  std::size_t width_;
  std::size_t height_;
  std::size_t period_;                   // of the moving lines, pixels
  std::size_t firstMoving_;              // line
  std::size_t afterMoving_;              // the line after the last one that moves
  std::vector<std::uint16_t> radiance_;  // lines of period + width pixels
};

}  // namespace picture

#endif
