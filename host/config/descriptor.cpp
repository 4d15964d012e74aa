#include "host/config/descriptor.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace host {

ssize_t write_some(int file, std::string_view bytes, int patienceMs) {
  pollfd waits{file, POLLOUT, 0};
  if (poll(&waits, 1, patienceMs) == 0) {
    return 0;
  }
  const ssize_t written = write(file, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
  return written < 0 && (errno == EINTR || errno == EAGAIN) ? 0 : written;
}

}  // namespace host
