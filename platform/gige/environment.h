// What environment variables say about network cameras. README.md lists them. Each initialisation reads them
// once.
#ifndef PLATFORM_GIGE_ENVIRONMENT_H
#define PLATFORM_GIGE_ENVIRONMENT_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/gige/stream/frame_stream.h"

namespace gige {

struct environment {
  std::vector<std::string> interfaces{};     // names of network interfaces to search, see discovery.h
  std::vector<std::uint32_t> addresses{};    // of cameras to ask directly, host byte order
  std::chrono::milliseconds discovery{100};  // longest time of a search
  transport_choice transport = transport_choice::automatic;
  std::uint32_t socketBufferBytes = 0;  // of the socket or packet ring of a stream; 0: by the frames
  std::string descriptionDirectory{};   // with the only files that a camera may name; empty: none
};

// Raises std::invalid_argument; the text names the variable and the right values.
environment read_environment();

}  // namespace gige

#endif
