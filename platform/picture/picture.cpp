#include "platform/picture/picture.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace picture {
namespace {

constexpr double whiteGrey = 230;         // grey of white paper at the reference exposure and gain 1
constexpr double referenceUs = 5000;      // exposure at which the scene is well exposed
constexpr double blackLevel = 6;          // grey of no light
constexpr double electronsPerGrey = 40;   // at gain 1; shot noise is the root of the electrons
constexpr double readNoiseGrey = 0.5;     // at gain 1
constexpr double infraredStrength = 1.6;  // next to a light, against the room's light
constexpr double infraredReach = 0.55;    // part of the width at which it fell to 1/e

// Light is counted in quarters of a grey. The highest level is white with any noise.
constexpr std::size_t lightLevels = 1024;
constexpr double levelsPerGrey = 4;
// The number of deviations that noise is drawn from, all of them equally likely.
constexpr std::size_t noiseDraws = 32;

using tone_table = std::array<std::uint8_t, lightLevels * noiseDraws>;

// The normal distribution in that many equally likely parts; each deviation is the median of its part.
std::array<double, noiseDraws> make_deviations() {
  std::array<double, noiseDraws> deviations{};
  for (std::size_t draw = 0; draw < noiseDraws; ++draw) {
    const double wanted = (static_cast<double>(draw) + 0.5) / static_cast<double>(noiseDraws);
    double low = -4;
    double high = 4;
    for (int step = 0; step < 40; ++step) {
      const double middle = (low + high) / 2;
      (0.5 * std::erfc(-middle / std::sqrt(2.0)) < wanted ? low : high) = middle;
    }
    deviations[draw] = low;
  }
  return deviations;
}

// One long row of random draws. Each line of a picture uses a piece of it that starts at a place of its own.
constexpr std::size_t drawStarts = 1 << 16;
constexpr std::size_t longestLine = 1 << 14;

std::vector<std::uint8_t> make_draws() {
  std::mt19937 random(20240229);  // the same on every machine
  std::vector<std::uint8_t> draws(drawStarts + longestLine);
  std::generate(draws.begin(), draws.end(), [&] { return static_cast<std::uint8_t>(random() % noiseDraws); });
  return draws;
}

std::uint64_t scattered(std::uint64_t number) {
  number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31);
}

std::array<std::uint8_t, 256> make_curve(const picture_settings& settings) {
  std::array<std::uint8_t, 256> curve{};
  for (std::size_t in = 0; in < curve.size(); ++in) {
    const auto grey = static_cast<double>(in);
    const double out = settings.tone == tone_curve::gamma && settings.gamma > 0
                           ? 255 * std::pow(grey / 255, 1 / settings.gamma)
                       : settings.tone == tone_curve::negative ? 255 - grey
                                                               : grey;
    curve[in] = static_cast<std::uint8_t>(std::lround(out));
  }
  return curve;
}

// The grey of each light level with each deviation, after noise, black level, saturation and tone curve.
void fill_tones(const picture_settings& settings, tone_table& tones) {
  static const auto deviations = make_deviations();
  const auto curve = make_curve(settings);
  const double readNoise = readNoiseGrey * settings.gain;
  for (std::size_t level = 0; level < lightLevels; ++level) {
    const double light = static_cast<double>(level) / levelsPerGrey;
    const double sigma =
        settings.noise ? std::sqrt(readNoise * readNoise + light * settings.gain / electronsPerGrey) : 0;
    for (std::size_t draw = 0; draw < noiseDraws; ++draw) {
      const double grey = std::clamp(light + blackLevel + sigma * deviations[draw] + 0.5, 0.0, 255.0);
      tones[level * noiseDraws + draw] = curve[static_cast<std::size_t>(grey)];
    }
  }
}

// For each column of the sensor, the light levels that a radiance of 65536 gives.
std::vector<std::uint32_t> column_weights(const scene& what, const picture_settings& settings) {
  std::vector<std::uint32_t> weights(what.width());
  const double perExposure = settings.gain * whiteGrey * levelsPerGrey * 65536 / scene::white / referenceUs;
  for (std::size_t x = 0; x < weights.size(); ++x) {
    const double across = (static_cast<double>(x) + 0.5) / static_cast<double>(weights.size());
    const double room = 1 - 0.4 * (across - 0.5) * (across - 0.5);
    const double left = std::exp(-across / infraredReach);
    const double right = std::exp(-(1 - across) / infraredReach);
    const double light = room * settings.exposureUs +
                         infraredStrength * (left * settings.infraredUs[0] + right * settings.infraredUs[1]);
    weights[x] = static_cast<std::uint32_t>(std::clamp(light * perExposure, 0.0, 4294967295.0));
  }
  return weights;
}

}  // namespace

void draw(const scene& what, const picture_settings& settings, std::uint8_t* pixels) {
  static const auto draws = make_draws();
  tone_table tones;
  fill_tones(settings, tones);
  const auto weights = column_weights(what, settings);
  const std::size_t width = settings.width;
  // A mirrored line is read from left to right and written from right to left.
  const std::size_t firstColumn =
      settings.reverseX ? what.width() - settings.offsetX - width : settings.offsetX;
  const std::ptrdiff_t step = settings.reverseX ? -1 : 1;
  for (std::size_t y = 0; y < settings.height; ++y) {
    const std::size_t row = settings.offsetY + y;
    const std::size_t sensorRow = settings.reverseY ? what.height() - 1 - row : row;
    const std::uint16_t* radiance = what.line(sensorRow, settings.timeUs) + firstColumn;
    const std::uint32_t* weight = weights.data() + firstColumn;
    const std::uint8_t* noise = draws.data() + scattered(settings.noiseSeed + sensorRow) % drawStarts;
    std::uint8_t* to = pixels + y * width + (settings.reverseX ? width - 1 : 0);
    for (std::size_t x = 0; x < width; ++x, to += step) {
      const std::uint64_t light = std::uint64_t{radiance[x]} * weight[x] >> 16;
      *to = tones[std::min<std::uint64_t>(light, lightLevels - 1) * noiseDraws + noise[x]];
    }
  }
}

// From the last pixel to the first, so that no pixel is overwritten before it is read.
void widen_to_mono10(std::uint8_t* pixels, std::size_t count) {
  for (std::size_t at = count; at-- > 0;) {
    const unsigned grey = pixels[at] * 4U;
    pixels[2 * at] = static_cast<std::uint8_t>(grey);
    pixels[2 * at + 1] = static_cast<std::uint8_t>(grey >> 8U);
  }
}

}  // namespace picture
