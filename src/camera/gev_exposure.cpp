#include "src/camera/gev_exposure.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

exposure_api::exposure_api(param_provider_like* provider, const table<property, table_like>& config)
    : exposure(provider) {
  LOG(5, "exec");
  setup(config);
  LOG(4, "done");
}

void exposure_api::setup(const table<property, table_like>& config) {
  float exposureUs = 0;
  if (config.getFloat(property::VS_SWEEP_MANUAL_EXPOSURE_USEC, 0, exposureUs)) {
    exposure.setValue(exposureUs);
  }
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
