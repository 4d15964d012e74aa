// Integer camera features as parameters: the value, the camera's (hard) limits, the bundle's own (soft)
// limits, validation against both, and writes that leave a log line.
//
// A parameter keeps values and limits but never a node: the feature is looked up by name at every use. The
// provider is not owned and must outlive it. One thread at a time.
#ifndef SRC_CAMERA_PARAMS_INT64_PARAM_H
#define SRC_CAMERA_PARAMS_INT64_PARAM_H

#include <cstdint>
#include <limits>
#include <string>

#include "src/camera/param_provider.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// An integer feature to read.
///
/// Operations that reach the camera raise internal_error without a node map or without the feature (level 1
/// line before it), and let the node map's exceptions pass.
class ro_int64_param {
 public:
  /// Does not touch the camera. `name` is copied.
  ro_int64_param(param_provider_like* provider, const char* name);
  virtual ~ro_int64_param() = default;

  /// Reads the value from the camera.
  std::int64_t getValue();
  /// The same as 32 bits; external_error when it does not fit.
  std::uint32_t getValueUint32();

 protected:
  /// Stands for "nothing known yet", also as a hard and a soft minimum.
  static constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();

  std::int64_t value_ = kUnknown;  // last value read or written
  param_provider_like* provider_;
  std::string name_;
};

/// An integer feature to read and write.
class rw_int64_param : public ro_int64_param {
 public:
  using ro_int64_param::ro_int64_param;

  /// The camera's limits, read once per object. Without a node map a level-2 line, and the value that stands
  /// for "not read yet", which does not restrict.
  std::int64_t getHardMin();
  std::int64_t getHardMax();
  std::int64_t getHardInc();

  /// The narrower of hard and soft limit.
  std::int64_t getMin();
  std::int64_t getMax();
  /// The wider of hard and soft increment; 0 when there is none.
  std::int64_t getInc();

  /// Set a soft limit. params_error when it is beyond the hard limits, or no larger multiple of the hard
  /// increment.
  void setMin(std::int64_t value);
  void setMax(std::int64_t value);
  void setInc(std::int64_t value);

  /// Whether `value` lies within the limits, both included, and on the increment's grid, which starts at the
  /// hard minimum.
  bool validate(std::int64_t value);
  /// Writes the camera; external_error, and nothing written, when `value` is not valid.
  void setValue(std::int64_t value);

 private:
  static constexpr std::int64_t kMaxNotRead = std::numeric_limits<std::int64_t>::max();

  std::int64_t readHardLimit(std::int64_t& cache, std::int64_t notRead,
                             std::int64_t (*read)(GenApi::IInteger&), const char* label,
                             caller where = caller::here());
  void requireWithinHardLimits(std::int64_t value, caller where = caller::here());

  std::int64_t hardMin_ = kUnknown;
  std::int64_t hardMax_ = kMaxNotRead;
  std::int64_t hardInc_ = 0;
  std::int64_t softMin_ = kUnknown;
  std::int64_t softMax_ = kMaxNotRead;
  std::int64_t softInc_ = 0;
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
