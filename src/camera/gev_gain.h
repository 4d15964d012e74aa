// The gain: decibels in the configuration and in the frames, a linear factor in the camera.
#ifndef SRC_CAMERA_GEV_GAIN_H
#define SRC_CAMERA_GEV_GAIN_H

#include <mediagrabber/property.h>

#include <string>

#include "core/table.h"
#include "src/camera/params/float_param.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// "Gain", a linear factor, of the entry that "GainSelector" selects.
class manual_gain_param : public rw_float_param {
 public:
  explicit manual_gain_param(param_provider_like* provider) : rw_float_param(provider, "Gain") {}
};

/// A parameter of type T that lives behind a selector: `getParam` is the way to it.
template <class T>
class selector {
 public:
  selector(param_provider_like* provider, const char* selectorName, const char* entryName)
      : provider_(provider), selectorName_(selectorName), entryName_(entryName), param_(provider) {}

  /// Selects the entry in the camera, every time, and gives the parameter, which stays this object's.
  /// unsupported_error, without a log line, when the selector is absent or no enumeration; the node map's
  /// exception when it has no such entry; internal_error, after a level-1 line, without a node map.
  T* getParam() {
    auto* node = findNode<GenApi::IEnumeration>(requireNodeMap(provider_), selectorName_.c_str());
    if (node == nullptr) {
      throw unsupported_error();
    }
    node->FromString(entryName_.c_str(), true);
    return &param_;
  }

 private:
  param_provider_like* provider_;
  std::string selectorName_;
  std::string entryName_;
  T param_;
};

/// Carries VS_SWEEP_MANUAL_GAIN_DB to the camera; an absent row leaves the camera as it is. Lets the
/// exceptions of selector and parameter pass.
class gain_api {
 public:
  gain_api(param_provider_like* provider, const table<property, table_like>& config);

  /// Applies the row again.
  void setup(const table<property, table_like>& config);

  /// The camera's gain at this moment, decibels.
  float getGainDb();

 private:
  selector<manual_gain_param> gain_;
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
