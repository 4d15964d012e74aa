#include "platform/picture/scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <limits>
#include <stdexcept>

namespace picture {
namespace {

constexpr double periodsPerSecond = 0.2;  // the speed of moving lines

using radiance = std::uint16_t;

constexpr radiance grey(double part) {
  return static_cast<radiance>(part * scene::white);
}

// Draws shapes into lines of radiance. Coordinates are pixels; parts of a shape outside of the lines are cut
// off.
class canvas {
 public:
  canvas(std::vector<radiance>& pixels, std::size_t stride)
      : pixels_(pixels),
        width_(static_cast<long>(stride)),
        height_(static_cast<long>(pixels.size() / stride)) {}

  void box(double left, double top, double right, double bottom, double part) {
    each(left, top, right, bottom, [=](double, double, radiance) { return grey(part); });
  }

  void disc(double x, double y, double radius, double part) {
    each(x - radius, y - radius, x + radius, y + radius, [=](double px, double py, radiance under) {
      return std::hypot(px - x, py - y) < radius ? grey(part) : under;
    });
  }

  // A lamp: brightest in the middle, with a halo.
  void lamp(double x, double y, double radius, double part) {
    each(x - 4 * radius, y - 4 * radius, x + 4 * radius, y + 4 * radius,
         [=](double px, double py, radiance under) {
           const double distance = std::hypot(px - x, py - y) / radius;
           const double light = distance < 1 ? part : 1.2 * std::exp(2 * (1 - distance)) - 0.003;
           return static_cast<radiance>(std::min(under + std::max(light, 0.0) * scene::white, 65535.0));
         });
  }

  // Spokes that grow finer towards the middle.
  void star(double x, double y, double radius) {
    each(x - radius, y - radius, x + radius, y + radius, [=](double px, double py, radiance under) {
      const bool inside = std::hypot(px - x, py - y) < radius;
      return inside ? grey(std::sin(std::atan2(py - y, px - x) * 24) > 0 ? 0.9 : 0.04) : under;
    });
  }

  // Text in a font of 3 x 5 dots, `dot` pixels each.
  void text(double left, double top, double dot, const std::string& line, double part);

 private:
  template <class Paint>
  void each(double left, double top, double right, double bottom, Paint paint) {
    const long endX = std::min(std::lround(right), width_);
    const long endY = std::min(std::lround(bottom), height_);
    for (long y = std::max(std::lround(top), 0L); y < endY; ++y) {
      for (long x = std::max(std::lround(left), 0L); x < endX; ++x) {
        radiance& pixel = pixels_[static_cast<std::size_t>(y * width_ + x)];
        pixel = paint(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5, pixel);
      }
    }
  }

  std::vector<radiance>& pixels_;
  long width_;
  long height_;
};

struct glyph {
  char letter;
  std::uint16_t dots;  // five rows of three, an octal digit each, from the top
};

constexpr std::array font = {glyph{'0', 075557}, glyph{'1', 026227}, glyph{'2', 071747}, glyph{'3', 071717},
                             glyph{'4', 055711}, glyph{'5', 074717}, glyph{'6', 074757}, glyph{'7', 071222},
                             glyph{'8', 075757}, glyph{'9', 075717}, glyph{'A', 025755}, glyph{'I', 072227},
                             glyph{'N', 057775}, glyph{'O', 025552}, glyph{'P', 065644}, glyph{'S', 034216},
                             glyph{'T', 072222}};

void canvas::text(double left, double top, double dot, const std::string& line, double part) {
  for (const char letter : line) {
    const auto found =
        std::find_if(font.begin(), font.end(), [=](const glyph& g) { return g.letter == letter; });
    const unsigned dots = found == font.end() ? 0U : found->dots;
    for (unsigned at = 0; at < 15; ++at) {
      if ((dots >> (14 - at) & 1U) != 0) {
        const double x = left + dot * (at % 3);
        const double y = top + dot * std::floor(at / 3.0);
        box(x, y, x + dot, y + dot, part);
      }
    }
    left += 4 * dot;
  }
}

// The test chart: grey wedge with numbers, star, bars from coarse to fine, station sign, lamp.
void draw_chart(canvas& onto, double w, double h) {
  constexpr int steps = 11;
  onto.box(0.03 * w, 0.03 * h, 0.7 * w, 0.17 * h, 0.3);
  for (int step = 0; step < steps; ++step) {
    const double left = (0.04 + 0.059 * step) * w;
    onto.box(left, 0.04 * h, left + 0.059 * w, 0.12 * h, 0.02 + 0.098 * step);
    onto.text(left + 0.02 * w, 0.132 * h, 0.004 * h, std::to_string(step), 1.0);
  }
  onto.disc(0.15 * w, 0.36 * h, 0.15 * h, 0.95);
  onto.star(0.15 * w, 0.36 * h, 0.14 * h);
  onto.box(0.32 * w, 0.22 * h, 0.62 * w, 0.34 * h, 0.95);
  double left = 0.33 * w;
  for (int bar = 0; bar < 32; ++bar) {
    const double pitch = 0.018 * w * std::pow(0.935, bar);
    onto.box(left, 0.235 * h, left + pitch / 2, 0.325 * h, 0.04);
    left += pitch;
  }
  onto.box(0.32 * w, 0.38 * h, 0.62 * w, 0.48 * h, 0.06);
  onto.text(0.335 * w, 0.405 * h, 0.0098 * h, "STATION 7", 0.85);
  onto.lamp(0.85 * w, 0.2 * h, 0.05 * h, 12);
}

// One part on the belt: a plate with a bore, or a round one, with its number.
void draw_part(canvas& onto, double x, double y, double size, int number) {
  const double tone = 0.45 + 0.09 * (number % 5);
  if (number % 2 == 0) {
    onto.box(x - size, y - 0.8 * size, x + size, y + 0.8 * size, tone);
  } else {
    onto.disc(x, y, size, tone);
  }
  onto.disc(x, y - 0.4 * size, 0.25 * size, 0.05);
  onto.text(x - 0.35 * size, y + 0.02 * size, 0.11 * size, "P" + std::to_string(number), 0.04);
}

// The belt with its parts. It is drawn for one period and a picture's width, so that a line can start
// anywhere within the period.
void draw_belt(canvas& onto, double w, double period, double top, double bottom) {
  constexpr int parts = 6;
  const double pitch = period / parts;
  onto.box(0, top, period + w, bottom, 0.1);
  for (int number = 0; number < 2 * parts; ++number) {
    onto.box(number * pitch, top, number * pitch + 0.004 * w, bottom, 0.16);
    draw_part(onto, (number + 0.5) * pitch, (top + bottom) / 2, 0.3 * (bottom - top), number % parts + 1);
  }
}

std::size_t part_of(std::size_t whole, double part) {
  return static_cast<std::size_t>(static_cast<double>(whole) * part);
}

struct grey_image {
  std::size_t width = 0;
  std::size_t height = 0;
  std::vector<char> pixels;
};

// The next number of the header. '#' starts a comment there.
std::size_t header_number(std::istream& file) {
  while (file >> std::ws && file.peek() == '#') {
    file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  std::size_t number = 0;
  file >> number;
  return number;
}

grey_image read_pgm(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string magic;
  file >> magic;
  grey_image image;
  image.width = header_number(file);
  image.height = header_number(file);
  const std::size_t white = header_number(file);
  file.get();  // the one blank before the pixels
  if (!file || magic != "P5" || white != 255 || image.width - 1 >= 65535 || image.height - 1 >= 65535) {
    throw std::invalid_argument("scene '" + path + "' is not a readable 8-bit binary PGM (P5, white 255)");
  }
  image.pixels.resize(image.width * image.height);
  if (!file.read(image.pixels.data(), static_cast<std::streamsize>(image.pixels.size()))) {
    throw std::invalid_argument("scene '" + path + "' ends before its " + std::to_string(image.width) + "x" +
                                std::to_string(image.height) + " pixels");
  }
  return image;
}

}  // namespace

scene::scene(std::size_t width, std::size_t height)
    : width_(width),
      height_(height),
      period_(part_of(width, 1.3)),
      firstMoving_(part_of(height, 0.56)),
      afterMoving_(part_of(height, 0.88)),
      radiance_((period_ + width) * height, grey(0.4)) {
  canvas onto(radiance_, period_ + width);
  const auto w = static_cast<double>(width);
  const auto h = static_cast<double>(height);
  draw_chart(onto, w, h);
  onto.box(0, 0.53 * h, w, 0.91 * h, 0.6);
  draw_belt(onto, w, static_cast<double>(period_), static_cast<double>(firstMoving_),
            static_cast<double>(afterMoving_));
}

scene::scene(const std::string& pgmPath, std::size_t width, std::size_t height)
    : width_(width),
      height_(height),
      period_(width),
      firstMoving_(0),
      afterMoving_(height),
      radiance_((period_ + width) * height) {
  const grey_image image = read_pgm(pgmPath);
  for (std::size_t y = 0; y < height; ++y) {
    const char* from = image.pixels.data() + y * image.height / height * image.width;
    std::uint16_t* to = radiance_.data() + y * (period_ + width);
    for (std::size_t x = 0; x < period_ + width; ++x) {
      const auto level = static_cast<unsigned char>(from[x % period_ * image.width / width]);
      to[x] = grey(level / 255.0);
    }
  }
}

const std::uint16_t* scene::line(std::size_t y, std::uint64_t timeUs) const {
  const bool isMoving = y >= firstMoving_ && y < afterMoving_;
  const double periods = static_cast<double>(timeUs) * 1e-6 * periodsPerSecond;
  const std::size_t shift = isMoving ? part_of(period_, periods - std::floor(periods)) : 0;
  return radiance_.data() + y * (period_ + width_) + shift;
}

}  // namespace picture
