// The values of features as GevGetFeatureValue and GevSetFeatureValue pass them: as bytes.
#ifndef PLATFORM_GEV_FEATURE_BYTES_H
#define PLATFORM_GEV_FEATURE_BYTES_H

#include <gevapi.h>

#include <cstddef>
#include <optional>

#include "platform/gev/feature.h"

namespace gev {

// A buffer of this many bytes or more passes a feature of any kind as text.
constexpr std::size_t smallestText = 16;

// Reads the feature into the `size` bytes at `to` and sets *type to its kind. PARAMETER_INVALID when a value
// of that kind does not have that size.
GEV_STATUS read_bytes(feature& from, int* type, std::size_t size, void* to);
// Writes the `size` bytes at `from`, with all checks. PARAMETER_INVALID as above.
GEV_STATUS write_bytes(feature& to, std::size_t size, const void* from);
// The value in the bytes. A text is not parsed. Nothing when no value of the feature's kind has that size.
std::optional<value> value_of_bytes(feature& feature, std::size_t size, const void* from);

// GevGetFeatureValue and GevSetFeatureValue of any camera that has a member `with_feature(name, use)`, which
// calls `use` with the feature of that name.
template <class Camera>
GEV_STATUS read_feature(Camera& of, const char* name, int* type, int size, void* to) {
  if (name == nullptr || type == nullptr || to == nullptr) {
    return GEVLIB_ERROR_PARAMETER_NULL;
  }
  if (size <= 0) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  return of.with_feature(
      name, [=](feature& feature) { return read_bytes(feature, type, static_cast<std::size_t>(size), to); });
}
template <class Camera>
GEV_STATUS write_feature(Camera& of, const char* name, int size, const void* from) {
  if (name == nullptr || from == nullptr) {
    return GEVLIB_ERROR_PARAMETER_NULL;
  }
  if (size <= 0) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  return of.with_feature(
      name, [=](feature& feature) { return write_bytes(feature, static_cast<std::size_t>(size), from); });
}

}  // namespace gev

#endif
