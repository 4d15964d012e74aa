// The sensor window and the rotation.
#ifndef SRC_CAMERA_GEV_SENSOR_H
#define SRC_CAMERA_GEV_SENSOR_H

#include <mediagrabber/property.h>

#include "core/table.h"
#include "src/camera/params/bool_param.h"
#include "src/camera/params/int64_param.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// Offset and size of the window, pixels and lines.
class sensor_x_param : public rw_int64_param {
 public:
  explicit sensor_x_param(param_provider_like* provider) : rw_int64_param(provider, "OffsetX") {}
};
class sensor_y_param : public rw_int64_param {
 public:
  explicit sensor_y_param(param_provider_like* provider) : rw_int64_param(provider, "OffsetY") {}
};
class sensor_w_param : public rw_int64_param {
 public:
  explicit sensor_w_param(param_provider_like* provider) : rw_int64_param(provider, "Width") {}
};
class sensor_h_param : public rw_int64_param {
 public:
  explicit sensor_h_param(param_provider_like* provider) : rw_int64_param(provider, "Height") {}
};

/// Carries the rows VS_ACQ_SENSOR_X, _Y, _W, _H and VS_ACQ_ROTATE180 to the camera, once. Values go as they
/// are, neither rounded nor clamped.
class sensor_api {
 public:
  /// params_error, after a level-1 line and with nothing written, when a row is absent; internal_error when
  /// the camera refuses the window in both write orders, or the rotation; lets the bundle's exceptions of the
  /// parameters pass. After a failure the camera keeps what was written before.
  sensor_api(param_provider_like* provider, const table<property, table_like>& config);

 private:
  sensor_x_param x_;
  sensor_y_param y_;
  sensor_w_param w_;
  sensor_h_param h_;
  bool_enum_param reverseX_;
  bool_enum_param reverseY_;
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
