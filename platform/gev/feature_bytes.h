// The values of features as GevGetFeatureValue and GevSetFeatureValue pass them: as bytes.
#ifndef PLATFORM_GEV_FEATURE_BYTES_H
#define PLATFORM_GEV_FEATURE_BYTES_H

#include <gevapi.h>

#include <cstddef>
#include <optional>

#include "platform/gev/feature.h"

namespace gev {

// From so many bytes on, a feature of any kind is passed as text.
constexpr std::size_t smallestText = 16;

// Reads the feature into `to`, sets *type to its kind. PARAMETER_INVALID when the size does not suit it.
GEV_STATUS read_bytes(feature& from, int* type, std::size_t size, void* to);
// Writes, with all checks.
GEV_STATUS write_bytes(feature& to, std::size_t size, const void* from);
// The value in the bytes, a text as it is; nothing when the size is not one of the feature's kind.
std::optional<value> value_of_bytes(feature& feature, std::size_t size, const void* from);

// GevGetFeatureValue and GevSetFeatureValue of a camera that finds its features by `with_feature`.
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
