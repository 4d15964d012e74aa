// The temperature of a camera, which follows its frame rate slowly.
#ifndef PLATFORM_PICTURE_THERMOMETER_H
#define PLATFORM_PICTURE_THERMOMETER_H

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace picture {

class thermometer {
 public:
  // The mainboard is that much warmer than `after` returns, degrees Celsius.
  static constexpr double mainboardAbove = 6.5;

  explicit thermometer(std::uint64_t nowUs) : sinceUs_(nowUs) {}

  // The temperature at `nowUs`, degrees Celsius, after that frame rate since the previous call.
  double after(std::uint64_t nowUs, double framesPerSecond) {
    const double end = std::min(idle + perFrame * framesPerSecond, hottest);
    const double seconds = nowUs > sinceUs_ ? static_cast<double>(nowUs - sinceUs_) * 1e-6 : 0;
    celsius_ = end + (celsius_ - end) * std::exp(-seconds / timeConstant);
    sinceUs_ = nowUs;
    return celsius_;
  }

 private:
  static constexpr double idle = 41.0;
  static constexpr double perFrame = 0.25;
  static constexpr double hottest = 85.0;
  static constexpr double timeConstant = 90.0;  // seconds

  std::uint64_t sinceUs_;
  double celsius_ = idle;
};

}  // namespace picture

#endif
