// What the surroundings of a process decide about its network cameras. Read from environment variables once
// per initialisation; README.md lists them.
#ifndef PLATFORM_GIGE_ENVIRONMENT_H
#define PLATFORM_GIGE_ENVIRONMENT_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/gige/stream/frame_stream.h"

namespace gige {

struct environment {
  std::vector<std::string> interfaces{};     // names of network interfaces; none: all, or only the addresses
  std::vector<std::uint32_t> addresses{};    // cameras that are asked directly, host byte order
  std::chrono::milliseconds discovery{100};  // a search lasts no longer
  transport_choice transport = transport_choice::automatic;
  std::uint32_t socketBufferBytes = 0;  // of the stream's socket or ring; 0: the stream's own choice
  std::string descriptionDirectory{};   // whose files a camera may name as its description; empty: none
};

// Raises std::invalid_argument, whose text names the variable and what would be right.
environment read_environment();

}  // namespace gige

#endif
