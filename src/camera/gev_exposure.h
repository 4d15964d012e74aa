// The manual exposure time.
#ifndef SRC_CAMERA_GEV_EXPOSURE_H
#define SRC_CAMERA_GEV_EXPOSURE_H

#include <mediagrabber/property.h>

#include "core/table.h"
#include "src/camera/params/float_param.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// "ExposureTime", microseconds.
class manual_exposure_param : public rw_float_param {
 public:
  explicit manual_exposure_param(param_provider_like* provider) : rw_float_param(provider, "ExposureTime") {}
};

/// Carries VS_SWEEP_MANUAL_EXPOSURE_USEC to the camera; an absent row leaves the camera as it is. Lets the
/// exceptions of the parameter pass.
class exposure_api {
 public:
  exposure_api(param_provider_like* provider, const table<property, table_like>& config);

  /// Applies the row again.
  void setup(const table<property, table_like>& config);

  manual_exposure_param exposure;
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
