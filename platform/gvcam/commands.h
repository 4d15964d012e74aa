// What a running program can be told: faults on demand.
#ifndef PLATFORM_GVCAM_COMMANDS_H
#define PLATFORM_GVCAM_COMMANDS_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/gvcam/camera.h"

namespace gvcam {

using camera_list = std::vector<std::unique_ptr<camera>>;

// A line of words for each command, for the help.
std::string command_help();

// Does what a line says: "loss 0.01" for all cameras, "GV000001 loss 0.01" for one; an empty line says
// nothing. Tells for each camera that did, as "GV000001 loss 0.01". Raises std::invalid_argument
// that names what is wrong and what would be right, and what the camera raises.
void obey(const std::string& line, const camera_list& cameras,
          const std::function<void(const std::string&)>& tell);

}  // namespace gvcam

#endif
