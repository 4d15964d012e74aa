// The command line.
#ifndef PLATFORM_GVCAM_OPTIONS_H
#define PLATFORM_GVCAM_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "platform/gvcam/camera.h"

namespace gvcam {

struct options {
  std::vector<camera_identity> cameras;
  camera_setup setup;           // but for the description
  std::string descriptionPath;  // empty for the built-in one
  std::string scene;            // path, empty for the default
  std::vector<std::string> faults;
  bool dumpDescription = false;
};

// What the command line says. When that is all there is to do (help, or a mistake, which is then on
// standard error) the exit status comes instead.
struct parsed {
  std::optional<int> exitStatus;
  options wanted;
};
parsed parse(int argc, char** argv);

}  // namespace gvcam

#endif
