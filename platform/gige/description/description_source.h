// Where a camera's GenICam description is, and getting it from there.
#ifndef PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_SOURCE_H
#define PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_SOURCE_H

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/gige/description/archive.h"
#include "platform/gige/description/description_error.h"
#include "platform/gige/description/register_port.h"

namespace gige {

// What the text of a URL register says.
struct description_source {
  enum class place { camera, file, http };
  place where = place::camera;
  std::string path;  // the file's name on the camera, its path, or what is asked of the host ("/cam.zip")
  std::uint64_t address = 0;  // in the camera's memory, with `camera` only
  std::uint64_t size = 0;     // bytes there
  std::uint32_t host = 0;     // IPv4 address in host byte order, with `http` only
  std::uint16_t port = 80;
};

// Reads "Local:camera.zip;1d000;3a2f" (hexadecimal), "file:///usr/share/cameras/camera.xml" or
// "http://192.168.5.10/camera.zip"; upper and lower case are one. The text ends at its first NUL, or at its
// end. Raises description_error.
description_source parse_source(std::string_view text);

// What a camera may lead us to, and for how long.
struct source_access {
  std::uint32_t camera = 0;  // its IPv4 address, host byte order: the only host that `http` may name
  std::string directory;     // the only one whose files `file` may name; empty: no file at all
  // For all of a transfer, however it trickles in.
  std::chrono::milliseconds patience = std::chrono::seconds(30);
  int cancelled = -1;  // a descriptor that becomes readable when waiting shall end; -1: it never shall
};

// Gets what the source says, as it is there: XML, or a zip archive of it. Raises description_error, and what
// the camera's port raises.
std::string fetch(const description_source& from, register_port& camera, const source_access& allowed);

// The description's XML from the first of these URL register texts that leads to one. Empty texts are passed
// over. Raises description_error with the reason of each when none does; the port's TimeoutException comes
// through.
std::string load_description(std::span<const std::string> urls, register_port& camera,
                             const source_access& allowed);

}  // namespace gige

#endif
