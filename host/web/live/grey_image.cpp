#include "host/web/live/grey_image.h"

#include <algorithm>
#include <cmath>

namespace host {
namespace {

constexpr std::array<std::uint8_t, 3> kWhiteMark = {255, 0, 0};
constexpr std::array<std::uint8_t, 3> kBlackMark = {0, 90, 255};

// Where the pixels of one line or column of a picture begin in the image: one entry more than pixels.
std::vector<int> edges(int from, int length, int pixels) {
  std::vector<int> all(static_cast<std::size_t>(pixels) + 1);
  for (int at = 0; at <= pixels; ++at) {
    all[static_cast<std::size_t>(at)] =
        from + static_cast<int>(static_cast<std::int64_t>(length) * at / pixels);
  }
  return all;
}

// What one pixel of a picture stands for.
struct box_sum {
  std::uint32_t sum = 0;
  std::uint32_t count = 0;
  bool hasBlack = false;
  bool hasWhite = false;

  void add(std::span<const std::uint8_t> pixels) {
    for (const std::uint8_t grey : pixels) {
      sum += grey;
      hasBlack = hasBlack || grey == kBlack;
      hasWhite = hasWhite || grey == kWhite;
    }
    count += static_cast<std::uint32_t>(pixels.size());
  }
  std::uint8_t mean() const { return static_cast<std::uint8_t>((sum + count / 2) / count); }
  std::array<std::uint8_t, 3> colour() const {
    if (hasWhite || hasBlack) {
      return hasWhite ? kWhiteMark : kBlackMark;
    }
    return {mean(), mean(), mean()};
  }
};

double square(int value) {
  return static_cast<double>(value) * value;
}

}  // namespace

rectangle clipped(const rectangle& part, const grey_image& image) {
  const int left = std::clamp(part.x, 0, image.width);
  const int top = std::clamp(part.y, 0, image.height);
  const auto end = [](int from, int length, int limit) {
    return static_cast<int>(
        std::clamp<std::int64_t>(static_cast<std::int64_t>(from) + std::max(length, 0), 0, limit));
  };
  const rectangle inside = {left, top, end(part.x, part.width, image.width) - left,
                            end(part.y, part.height, image.height) - top};
  return inside.width > 0 && inside.height > 0 ? inside : rectangle{0, 0, image.width, image.height};
}

std::optional<std::uint8_t> grey_at(const grey_image& image, const point& where) {
  if (where.x < 0 || where.y < 0 || where.x >= image.width || where.y >= image.height) {
    return std::nullopt;
  }
  return image.row({where.x, where.y, 1, 1}, 0).front();
}

image_histogram::image_histogram(const grey_image& image, const rectangle& part)
    : pixels_(static_cast<double>(part.width) * part.height) {
  for (int line = 0; line < part.height; ++line) {
    for (const std::uint8_t grey : image.row(part, line)) {
      ++counts_[grey];
    }
  }
}

double image_histogram::mean() const {
  double sum = 0;
  for (std::size_t grey = 0; grey < counts_.size(); ++grey) {
    sum += static_cast<double>(grey) * counts_[grey];
  }
  return sum / pixels_;
}

double image_histogram::share(std::uint8_t grey) const {
  return counts_[grey] / pixels_;
}

double sharpness(const grey_image& image, const rectangle& part) {
  constexpr int kApart = 2;
  if (part.width <= kApart || part.height <= kApart) {
    return 0;
  }
  double differences = 0;
  double sum = 0;
  const auto inner = static_cast<std::size_t>(part.width - kApart);
  for (int line = 0; line + kApart < part.height; ++line) {
    const auto here = image.row(part, line);
    const auto below = image.row(part, line + kApart);
    for (std::size_t at = 0; at < inner; ++at) {
      differences += square(here[at + kApart] - here[at]) + square(below[at] - here[at]);
      sum += here[at];
    }
  }
  const double pixels = static_cast<double>(inner) * (part.height - kApart);
  const double mean = sum / pixels;
  return mean > 0 ? 100 * differences / (2 * pixels) / (mean * mean) : 0;
}

picture scaled(const grey_image& image, const rectangle& part, int width, bool marksClipping) {
  picture result;
  result.width = std::clamp(width, 1, part.width);
  result.height = std::max(
      1, static_cast<int>(std::lround(static_cast<double>(part.height) * result.width / part.width)));
  result.channels = marksClipping ? 3 : 1;
  result.bytes.reserve(static_cast<std::size_t>(result.width) * static_cast<std::size_t>(result.height) *
                       static_cast<std::size_t>(result.channels));
  const std::vector<int> columns = edges(0, part.width, result.width);
  const std::vector<int> lines = edges(0, part.height, result.height);
  std::vector<box_sum> boxes(static_cast<std::size_t>(result.width));
  for (std::size_t line = 0; line + 1 < lines.size(); ++line) {
    std::fill(boxes.begin(), boxes.end(), box_sum{});
    for (int from = lines[line]; from < lines[line + 1]; ++from) {
      const auto row = image.row(part, from);
      for (std::size_t at = 0; at < boxes.size(); ++at) {
        const auto begin = static_cast<std::size_t>(columns[at]);
        boxes[at].add(row.subspan(begin, static_cast<std::size_t>(columns[at + 1]) - begin));
      }
    }
    for (const box_sum& box : boxes) {
      if (marksClipping) {
        const auto colour = box.colour();
        result.bytes.insert(result.bytes.end(), colour.begin(), colour.end());
      } else {
        result.bytes.push_back(box.mean());
      }
    }
  }
  return result;
}

}  // namespace host
