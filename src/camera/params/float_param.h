// Float camera features as parameters: the value, the camera's (hard) limits, the bundle's own (soft) limits,
// validation against both, and writes that leave a log line.
//
// A parameter keeps values and limits but never a node: the feature is looked up by name at every use. The
// provider is not owned and must outlive it. One thread at a time. All values are single precision; what the
// camera holds in double precision is narrowed.
#ifndef SRC_CAMERA_PARAMS_FLOAT_PARAM_H
#define SRC_CAMERA_PARAMS_FLOAT_PARAM_H

#include <limits>
#include <string>

#include "src/camera/param_provider.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// A float feature to read.
///
/// Operations that reach the camera raise internal_error without a node map or without the feature (level 1
/// line before it), and let the node map's exceptions pass.
class ro_float_param {
 public:
  /// Reads the value once, and fails as getValue does. `name` is copied.
  ro_float_param(param_provider_like* provider, const char* name);
  virtual ~ro_float_param() = default;

  /// Reads the value from the camera.
  float getValue();

 protected:
  /// Stands for "nothing known yet", also as a hard and a soft minimum: the smallest positive normalised
  /// value.
  static constexpr float kUnknown = std::numeric_limits<float>::min();

  param_provider_like* provider_;
  std::string name_;
  float value_ = kUnknown;  // last value read or written
};

/// A float feature to read and write. The soft minimum starts at the smallest positive value: 0 and negative
/// values are refused until setMin lowers it.
class rw_float_param : public ro_float_param {
 public:
  using ro_float_param::ro_float_param;

  /// The camera's limits, read once per object. Without a node map a level-2 line, and the value that stands
  /// for "not read yet".
  float getHardMin();
  float getHardMax();

  /// The narrower of hard and soft limit.
  float getMin();
  float getMax();

  /// Set a soft limit; params_error when it is beyond the hard limits.
  void setMin(float value);
  void setMax(float value);

  /// Whether `value` lies within the limits, both included. Not-a-number passes; the camera judges it.
  bool validate(float value);
  /// Writes the camera; external_error, and nothing written, when `value` is not valid.
  void setValue(float value);

 private:
  static constexpr float kMaxNotRead = std::numeric_limits<float>::max();

  float readHardLimit(float& cache, float notRead, double (*read)(GenApi::IFloat&), const char* label,
                      caller where = caller::here());
  void requireWithinHardLimits(float value, caller where = caller::here());

  float hardMin_ = kUnknown;
  float hardMax_ = kMaxNotRead;
  float softMin_ = kUnknown;
  float softMax_ = kMaxNotRead;
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
