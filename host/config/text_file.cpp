#include "host/config/text_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/config/descriptor.h"

namespace host {
namespace {

text_file failed(std::string reason) {
  return {.text = "", .failure = std::move(reason)};
}

text_file failed(int error) {
  return failed(fmt::format("cannot be read: {}", std::strerror(error)));
}

}  // namespace

text_file read_text(const std::string& path, std::size_t bytesMax, std::chrono::milliseconds patience) {
  const descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.is_open()) {
    return failed(errno);
  }
  text_file read;
  std::array<char, 16384> part{};
  while (true) {
    pollfd waits{file.get(), POLLIN, 0};
    if (poll(&waits, 1, static_cast<int>(patience.count())) == 0) {
      return failed("cannot be read: its writer does not finish it");
    }
    const ssize_t got = ::read(file.get(), part.data(), part.size());
    if (got < 0 && errno != EINTR && errno != EAGAIN) {
      return failed(errno);
    }
    if (got == 0) {
      return read.text.empty() ? failed("is empty") : read;
    }
    read.text.append(part.data(), static_cast<std::size_t>(got < 0 ? 0 : got));
    if (read.text.size() > bytesMax) {
      return failed(fmt::format("is longer than {} bytes", bytesMax));
    }
  }
}

}  // namespace host
