// What a camera takes of the settings that change while it runs, in the configuration's units.
#ifndef HOST_ACQUIRE_LIMITS_H
#define HOST_ACQUIRE_LIMITS_H

#include <optional>
#include <string>
#include <vector>

#include "host/acquire/extension.h"
#include "host/config/config.h"

namespace host {

struct setting_range {
  double min;
  double max;
};

/// A range is absent where it is not known: nothing is refused then.
struct light_limits {
  std::optional<setting_range> exposureUs = std::nullopt;
  std::optional<setting_range> gainDb = std::nullopt;
  std::optional<setting_range> gamma = std::nullopt;
};

/// From the features ExposureTime, Gain and gammaCorrection.
light_limits limits_of(const std::vector<feature_record>& features);

/// A line for each setting that the camera does not take: "gain_db = 30: the camera takes 0 to 24.08 dB".
std::vector<std::string> refused_settings(const light_settings& wanted, const light_limits& limits);

/// The line of one setting; none when the camera takes the value. `key` is that of the configuration (see
/// keys.h), `slack` how far beyond the range a value may be.
std::optional<std::string> refusal(const char* key, double value, const setting_range& range,
                                   double slack = 0);

/// The limits of a feature; none where it has no numeric ones.
std::optional<setting_range> range_of(const feature_record& feature);

/// A gain factor in decibels.
double decibels(double factor);

/// Null when there is no feature of that name.
const feature_record* find_feature(const std::vector<feature_record>& features, const std::string& name);

}  // namespace host

#endif
