// What can be said of the pixels of a frame: grey values, their distribution, how sharp a region is, and a
// smaller copy to look at. Pure functions, on any thread.
#ifndef HOST_WEB_LIVE_GREY_IMAGE_H
#define HOST_WEB_LIVE_GREY_IMAGE_H

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace host {

/// The grey values that count as black and as white: beyond them, other light gives the same value.
inline constexpr std::uint8_t kBlack = 0;
inline constexpr std::uint8_t kWhite = 255;

inline constexpr int kCoordinateMax = 65'535;  ///< pixels, of what clients ask for

/// A part of an image, in pixels from its upper left corner.
struct rectangle {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  bool operator==(const rectangle&) const = default;
};

struct point {
  int x = 0;
  int y = 0;

  bool operator==(const point&) const = default;
};

/// Pixels that it does not own, one byte each, row after row without gaps.
struct grey_image {
  std::span<const std::uint8_t> pixels;  ///< width * height of them
  int width = 0;
  int height = 0;

  std::span<const std::uint8_t> row(const rectangle& part, int line) const {
    const std::size_t from = static_cast<std::size_t>(part.y + line) * static_cast<std::size_t>(width) +
                             static_cast<std::size_t>(part.x);
    return pixels.subspan(from, static_cast<std::size_t>(part.width));
  }
};

/// What of `part` lies in the image; the whole image where nothing does.
rectangle clipped(const rectangle& part, const grey_image& image);

/// The grey value there; none outside.
std::optional<std::uint8_t> grey_at(const grey_image& image, const point& where);

/// How many pixels of a part have each grey value.
class image_histogram {
 public:
  /// `part` lies in the image.
  image_histogram(const grey_image& image, const rectangle& part);

  const std::array<std::uint32_t, 256>& counts() const { return counts_; }
  double mean() const;
  /// Share of all pixels, 0 to 1, that have this grey value.
  double share(std::uint8_t grey) const;

 private:
  std::array<std::uint32_t, 256> counts_{};
  double pixels_;
};

/// How sharp a part is: the mean squared difference of pixels two apart, in both directions, over the square
/// of the mean grey, in percent. It does not change with the exposure, and it is largest in focus. Only
/// values of the same scene can be compared. 0 for a part that is black, or smaller than three pixels in a
/// direction.
double sharpness(const grey_image& image, const rectangle& part);

/// A picture to look at: one byte a pixel, or three (red, green, blue).
struct picture {
  std::vector<std::uint8_t> bytes;
  int width = 0;
  int height = 0;
  int channels = 1;
};

/// `part` (in the image) scaled down to `width` pixels a line, each the mean of those it stands for. A part
/// is never scaled up. With `marksClipping` in colour: a pixel that stands for a white one is red, one that
/// stands for a black one is blue.
picture scaled(const grey_image& image, const rectangle& part, int width, bool marksClipping);

}  // namespace host

#endif
