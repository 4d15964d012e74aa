// The acquisition frame rate.
#ifndef SRC_CAMERA_GEV_FPS_H
#define SRC_CAMERA_GEV_FPS_H

#include <mediagrabber/property.h>

#include <cstdint>

#include "core/table.h"
#include "src/camera/params/float_param.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// "AcquisitionFrameRate", frames per second.
class frame_rate_param : public rw_float_param {
 public:
  explicit frame_rate_param(param_provider_like* provider)
      : rw_float_param(provider, "AcquisitionFrameRate") {}
};

/// Carries VS_ACQ_FPS_HZ to the camera, once, and keeps what the camera made of it.
class fps_api {
 public:
  /// params_error, after a level-1 line, without the row. Lets the exceptions of the parameter pass.
  fps_api(param_provider_like* provider, const table<property, table_like>& config);

  frame_rate_param frameRate;
  float fps = 0;  ///< as the camera accepted it, frames per second
  /// 1,000,000 / fps, rounded to whole microseconds; without meaning at a rate of 0.
  std::uint32_t periodUs = 0;
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
