// A two-valued camera feature that is written from a bool.
#ifndef SRC_CAMERA_PARAMS_BOOL_PARAM_H
#define SRC_CAMERA_PARAMS_BOOL_PARAM_H

#include <string>

#include "src/camera/param_provider.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// Writes one of two texts to a feature, which may be an enumeration or a boolean, as long as it takes them.
/// The provider is not owned and must outlive it. One thread at a time.
class bool_enum_param {
 public:
  /// Does not touch the camera.
  bool_enum_param(param_provider_like* provider, const char* name, const char* trueText,
                  const char* falseText);

  /// Writes the text for `value`. internal_error, after a level-1 line, when there is no node map, no such
  /// feature, or the feature refuses the text.
  void setValue(bool value);

 private:
  param_provider_like* provider_;
  std::string name_;
  std::string trueText_;
  std::string falseText_;
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
