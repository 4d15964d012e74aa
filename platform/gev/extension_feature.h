// A feature as camera_extension_features hands it out.
#ifndef PLATFORM_GEV_EXTENSION_FEATURE_H
#define PLATFORM_GEV_EXTENSION_FEATURE_H

#include <camera_extension.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/gev/feature.h"

namespace gev {

// The texts that a record points to.
class extension_feature {
 public:
  // Reads the feature, under its owner's lock. A value that cannot be read is null in the record.
  explicit extension_feature(feature& of);
  // Valid as long as this object.
  camera_extension_feature record() const;
  extension_feature(const extension_feature&) = delete;
  extension_feature& operator=(const extension_feature&) = delete;

 private:
  using text = std::optional<std::string>;

  std::string name_;
  text value_;
  text min_;
  text max_;
  text increment_;
  std::string unit_;
  std::string category_;
  std::string description_;
  std::vector<std::string> entries_;
  std::vector<const char*> entryNames_;
  camera_extension_type type_;
  bool readable_ = false;
  bool writable_ = false;
};

// Calls `visit` with each record until one call returns other than 0. Returns 0.
int visit_features(const std::vector<std::unique_ptr<extension_feature>>& features,
                   int (*visit)(void* context, const camera_extension_feature* feature), void* context);

// The text with blanks for control characters, as camera_extension.h promises.
std::string plain(std::string text);

}  // namespace gev

#endif
