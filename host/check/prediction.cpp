#include "host/check/prediction.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace host {
namespace {

constexpr double kWhite = 255;
constexpr double kLeastNoise = 1.5;  // greys; pictures that differ by less have not changed
constexpr double kPartOfWay = 0.5;   // of the predicted change, as black level and rounding are not known

double mean(const std::vector<double>& values) {
  return values.empty()
             ? 0
             : std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

double spread(const std::vector<double>& values) {
  const auto [least, most] = std::minmax_element(values.begin(), values.end());
  return values.empty() ? 0 : *most - *least;
}

double factor(const light_settings& settings) {
  const double gain = std::pow(10.0, static_cast<double>(settings.gainDb.value_or(0.0F)) / 20);
  return static_cast<double>(settings.exposureUs.value_or(1.0F)) * gain;
}

double gamma_of(const light_settings& settings) {
  return std::max(static_cast<double>(settings.gamma.value_or(1.0F)), 0.01);
}

bool is_lit(const light_settings& settings) {
  return settings.irLevel.value_or(0) != 0;
}

}  // namespace

double mean_grey(const grey_histogram& greys) {
  double sum = 0;
  double count = 0;
  for (std::size_t grey = 0; grey < greys.size(); ++grey) {
    sum += static_cast<double>(grey) * static_cast<double>(greys[grey]);
    count += static_cast<double>(greys[grey]);
  }
  return count > 0 ? sum / count : 0;
}

grey_bounds predict(const grey_histogram& before, const light_settings& from, const light_settings& to,
                    bool hasIr) {
  const double ratio = factor(to) / factor(from);
  const auto after = [&](double grey) {
    const double light = std::pow(grey / kWhite, gamma_of(from)) * ratio;
    return kWhite * std::pow(std::min(light, 1.0), 1 / gamma_of(to));
  };
  double least = 0;
  double most = 0;
  double count = 0;
  for (std::size_t grey = 0; grey < before.size(); ++grey) {
    const auto pixels = static_cast<double>(before[grey]);
    const auto level = static_cast<double>(grey);
    least += pixels * after(level);
    most += pixels * (level == kWhite ? kWhite : level == 0 ? after(1) : after(level));
    count += pixels;
  }
  grey_bounds bounds{count > 0 ? least / count : 0, count > 0 ? most / count : 0};
  if (hasIr && is_lit(to) && !is_lit(from)) {
    bounds.most = kWhite;
  } else if (hasIr && is_lit(from) && !is_lit(to)) {
    bounds.least = 0;
  }
  return bounds;
}

effect_judgement judge_effect(const grey_series& seen, const grey_bounds& predicted) {
  const double before = mean(seen.before);
  const double change = mean(seen.after) - before;
  const double noise = kLeastNoise + spread(seen.before) + spread(seen.after);
  // The least change that is predicted for sure; 0 when the grey may stay.
  const double expected = std::clamp(before, predicted.least, predicted.most) - before;
  if (std::abs(expected) <= noise) {
    return {effect_verdict::notJudged,
            fmt::format(
                "the picture can't tell: grey {:.1f} should become {:.1f} to {:.1f}, and varies by {:.1f}",
                before, predicted.least, predicted.most, noise)};
  }
  const bool isSeen = change / expected >= kPartOfWay;
  return {isSeen ? effect_verdict::seen : effect_verdict::notSeen,
          fmt::format("grey {:.1f} -> {:.1f}, predicted {:.1f} to {:.1f}", before, before + change,
                      predicted.least, predicted.most)};
}

}  // namespace host
