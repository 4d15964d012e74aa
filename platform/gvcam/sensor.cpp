#include "platform/gvcam/sensor.h"

#include <chrono>

namespace gvcam {
namespace {

bool is_within(const picture::picture_settings& window, const picture::scene& sensor) {
  return window.offsetX + window.width <= sensor.width() && window.offsetY + window.height <= sensor.height();
}

}  // namespace

std::shared_ptr<const pixel_memory> sensor::expose(const frame_settings& settings, std::uint64_t number) {
  const bool isRepeated = isStill_ && number != 1 && latest_ && latest_->size() == settings.image_size();
  if (!isRepeated) {
    auto pixels = std::make_shared<pixel_memory>(settings.image_size());
    draw(settings, number, *pixels);
    latest_ = std::move(pixels);
  }
  return latest_;
}

void sensor::draw(const frame_settings& settings, std::uint64_t number, pixel_memory& pixels) const {
  if (!is_within(settings.picture, scene_)) {
    return;
  }
  const auto intervalUs = std::chrono::duration<double, std::micro>(settings.interval).count();
  picture::picture_settings picture = settings.picture;
  picture.noise = hasNoise_;
  picture.noiseSeed = number;
  picture.timeUs = static_cast<std::uint64_t>(static_cast<double>(number) * intervalUs);
  picture::draw(scene_, picture, pixels.data());
  if (settings.pixelFormat == picture::pixelFormatMono10) {
    picture::widen_to_mono10(pixels.data(), pixels.size() / 2);
  }
}

}  // namespace gvcam
