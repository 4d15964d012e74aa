// Commands to a running gvcam, which make faults.
#ifndef PLATFORM_GVCAM_FAULT_COMMANDS_H
#define PLATFORM_GVCAM_FAULT_COMMANDS_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/gvcam/emulated_camera.h"

namespace gvcam {

using camera_list = std::vector<std::unique_ptr<emulated_camera>>;

// The help: a line for each command.
std::string command_help();

// Executes a line: "loss 0.01" for all cameras, "GV000001 loss 0.01" for one. An empty line is no command.
// `report` is called for each camera after its turn, with "GV000001 loss 0.01". Raises std::invalid_argument,
// which quotes the wrong word and says what would be right, and the exceptions of
// `emulated_camera::power_on`.
void execute_command(const std::string& line, const camera_list& cameras,
                     const std::function<void(const std::string&)>& report);

}  // namespace gvcam

#endif
