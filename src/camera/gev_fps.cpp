#include "src/camera/gev_fps.h"

#include <cmath>

namespace Zavik::Support::MediaGrabber::Gigev2 {

fps_api::fps_api(param_provider_like* provider, const table<property, table_like>& config)
    : frameRate(provider) {
  LOG(5, "exec");
  float rate = 0;
  if (!config.getFloat(property::VS_ACQ_FPS_HZ, 0, rate)) {
    LOG(1, "fail: VS_ACQ_FPS_HZ");
    throw params_error();
  }
  frameRate.setValue(rate);
  fps = frameRate.getValue();
  periodUs = static_cast<std::uint32_t>(std::lroundf(1'000'000.0F / fps));
  LOG(4, "done");
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
