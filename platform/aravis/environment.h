// What the surroundings of a process decide about its cameras: which networks are searched, and how the
// image stream is received. Read from environment variables once per initialisation; README.md lists them.
#ifndef PLATFORM_ARAVIS_ENVIRONMENT_H
#define PLATFORM_ARAVIS_ENVIRONMENT_H

#include <cstdint>
#include <string>
#include <vector>

namespace gige {

// A packet socket costs less per frame, but hands small frames over in batches and takes up to 0.1 s to open.
enum class packet_socket_use { automatic, on, off };

struct environment {
  std::vector<std::string> interfaces{};   // names of network interfaces; none: all, or only the addresses
  std::vector<std::uint32_t> addresses{};  // cameras that are asked directly, host byte order
  packet_socket_use packetSocket = packet_socket_use::automatic;
  std::uint32_t socketBufferBytes = 4U << 20;
  std::uint32_t discoveryMs = 100;  // so long answers to a search are awaited
};

// Raises std::invalid_argument, whose text names the variable and what would be right.
environment read_environment();

// "127.0.0.1", of host byte order.
std::string address_text(std::uint32_t address);

}  // namespace gige

#endif
