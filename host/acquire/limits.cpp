#include "host/acquire/limits.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "host/config/keys.h"

namespace host {
namespace {

constexpr double kGammaTolerance = 0.01;  // so much beyond the camera's range the bundle still asks for
constexpr double kRounding = 1e-6;        // of a value that became a float on its way

std::optional<double> number_of(const std::optional<std::string>& text) {
  double number = 0;
  const bool isNumber =
      text && std::from_chars(text->data(), text->data() + text->size(), number).ec == std::errc();
  return isNumber ? std::optional(number) : std::nullopt;
}

std::optional<setting_range> range_of(const std::vector<feature_record>& features, const char* name) {
  const feature_record* feature = find_feature(features, name);
  return feature == nullptr ? std::nullopt : range_of(*feature);
}

// Four digits that count, and never an exponent.
std::string number_text(double number) {
  return std::abs(number) >= 1000 ? fmt::format("{:.0f}", number) : fmt::format("{:.4g}", number);
}

void append_refusal(std::vector<std::string>& lines, const char* key, const std::optional<float>& value,
                    const std::optional<setting_range>& range, double slack = 0) {
  if (!value || !range) {
    return;
  }
  if (const auto line = refusal(key, static_cast<double>(*value), *range, slack)) {
    lines.push_back(*line);
  }
}

}  // namespace

double decibels(double factor) {
  return 20 * std::log10(factor);
}

const feature_record* find_feature(const std::vector<feature_record>& features, const std::string& name) {
  const auto found = std::find_if(features.begin(), features.end(),
                                  [&](const feature_record& each) { return each.name == name; });
  return found == features.end() ? nullptr : &*found;
}

std::optional<setting_range> range_of(const feature_record& feature) {
  const auto min = number_of(feature.min);
  const auto max = number_of(feature.max);
  return min && max ? std::optional(setting_range{*min, *max}) : std::nullopt;
}

light_limits limits_of(const std::vector<feature_record>& features) {
  light_limits limits;
  limits.exposureUs = range_of(features, "ExposureTime");
  // The camera's gain is a factor.
  if (const auto factor = range_of(features, "Gain"); factor && factor->min > 0 && factor->max > 0) {
    limits.gainDb = setting_range{decibels(factor->min), decibels(factor->max)};
  }
  limits.gamma = range_of(features, "gammaCorrection");
  return limits;
}

std::optional<std::string> refusal(const char* key, double value, const setting_range& range, double slack) {
  const double rounding = kRounding * std::max(std::abs(range.min), std::abs(range.max));
  if (value >= range.min - slack - rounding && value <= range.max + slack + rounding) {
    return std::nullopt;
  }
  const std::string unit = unit_of(key);
  return fmt::format("{} = {:.6g}: the camera takes {} to {}{}{}", key, value, number_text(range.min),
                     number_text(range.max), unit.empty() ? "" : " ", unit);
}

std::vector<std::string> refused_settings(const light_settings& wanted, const light_limits& limits) {
  std::vector<std::string> lines;
  append_refusal(lines, "exposure_us", wanted.exposureUs, limits.exposureUs);
  append_refusal(lines, "gain_db", wanted.gainDb, limits.gainDb);
  append_refusal(lines, "gamma", wanted.gamma, limits.gamma, kGammaTolerance);
  return lines;
}

}  // namespace host
