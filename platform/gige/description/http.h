// Fetching one file by HTTP.
#ifndef PLATFORM_GIGE_DESCRIPTION_HTTP_H
#define PLATFORM_GIGE_DESCRIPTION_HTTP_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/gige/description/description_error.h"

namespace gige {

struct http_request {
  std::uint32_t host = 0;  // IPv4 address, host byte order
  std::uint16_t port = 80;
  std::string path;      // "/camera.zip", without spaces and control characters
  std::size_t most = 0;  // bytes of content
  std::chrono::steady_clock::time_point deadline;
  int cancelled = -1;  // a descriptor that is readable when the wait has to end; -1: none
};

// The content of the file, by HTTP 1.0, where the end of the connection ends the answer. Follows no
// redirection. Raises description_error.
std::string http_get(const http_request& request);

// The content in a server's whole answer. Raises description_error for every status but 200.
std::string_view content_of(std::string_view answer);

}  // namespace gige

#endif
