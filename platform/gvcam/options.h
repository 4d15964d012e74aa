// The command line.
#ifndef PLATFORM_GVCAM_OPTIONS_H
#define PLATFORM_GVCAM_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "platform/gvcam/emulated_camera.h"

namespace gvcam {

struct options {
  std::vector<camera_identity> cameras;
  camera_setup setup;           // without the description
  std::string descriptionPath;  // empty for the built-in one
  std::string scene;            // path, empty for the default
  std::vector<std::string> faults;
  bool dumpDescription = false;
};

// The options, or the exit status when the program has nothing more to do: after help, or a mistake, which is
// on standard error.
struct parsed {
  std::optional<int> exitStatus;
  options wanted;
};
parsed parse(int argc, char** argv);

}  // namespace gvcam

#endif
