#include "src/camera/gev_gain.h"

#include <cmath>

namespace Zavik::Support::MediaGrabber::Gigev2 {

gain_api::gain_api(param_provider_like* provider, const table<property, table_like>& config)
    : gain_(provider, "GainSelector", "SensorAll") {
  LOG(5, "exec");
  setup(config);
  LOG(4, "done");
}

void gain_api::setup(const table<property, table_like>& config) {
  float gainDb = 0;
  if (config.getFloat(property::VS_SWEEP_MANUAL_GAIN_DB, 0, gainDb)) {
    gain_.getParam()->setValue(std::pow(10.0F, gainDb / 20.0F));
  }
}

float gain_api::getGainDb() {
  return 20.0F * std::log10(gain_.getParam()->getValue());
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
