// The place of a camera's GenICam description, and fetching it.
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

// A URL of a description, as a camera's URL registers hold it.
struct description_source {
  enum class place { camera, file, http };
  place where = place::camera;
  std::string path;  // name on the camera, path of the file, or path of the HTTP request ("/cam.zip")
  std::uint64_t address = 0;  // in the camera's memory, with `camera` only
  std::uint64_t size = 0;     // bytes there
  std::uint32_t host = 0;     // IPv4 address in host byte order, with `http` only
  std::uint16_t port = 80;
};

// Reads "Local:camera.zip;1d000;3a2f" (hexadecimal), "file:///usr/share/cameras/camera.xml" or
// "http://192.168.5.10/camera.zip"; upper and lower case are one. The text ends at its first NUL, or at its
// end. Raises description_error.
description_source parse_source(std::string_view text);

// The limits for fetching a description.
struct source_access {
  std::uint32_t camera = 0;  // IPv4 address, host byte order: the only host that an `http` URL may name
  std::string directory;     // the only directory whose files a `file` URL may name; empty: none
  // For the whole transfer.
  std::chrono::milliseconds patience = std::chrono::seconds(30);
  int cancelled = -1;  // a descriptor that is readable when the wait has to end; -1: none
};

// Fetches the bytes of the description: XML, or a zip archive of it. Raises description_error, and what the
// port raises.
std::string fetch(const description_source& from, register_port& camera, const source_access& allowed);

// The XML of the first URL that leads to a description. Skips empty texts. If none does, raises
// description_error with the reasons of all. Raises the port's TimeoutException at once.
std::string load_description(std::span<const std::string> urls, register_port& camera,
                             const source_access& allowed);

}  // namespace gige

#endif
