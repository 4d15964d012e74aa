#include "host/report/line_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/outputs/frame_writer.h"

namespace host {
namespace {

constexpr off_t kTailMax = 64 << 10;  // longer than a line is

}  // namespace

line_file::line_file(std::string path) : path_(std::move(path)) {
  open();
}

void line_file::open() {
  struct stat about {};
  const bool isPipe = stat(path_.c_str(), &about) == 0 && S_ISFIFO(about.st_mode);
  const int access = isPipe ? O_WRONLY : O_RDWR;  // a pipe open for reading, too, would seem to have a reader
  file_ = descriptor(
      ::open(path_.c_str(), access | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644));
  if (!file_.is_open() && !(isPipe && errno == ENXIO)) {
    throw output_error(fmt::format("{} can't be opened: {}", path_, write_failure(errno)));
  }
  isRegular_ = file_.is_open() && fstat(file_.get(), &about) == 0 && S_ISREG(about.st_mode);
  rest_.clear();
  if (isRegular_) {
    mend();
  }
}

void line_file::mend() {
  const off_t end = lseek(file_.get(), 0, SEEK_END);
  const off_t from = std::max<off_t>(end - kTailMax, 0);
  std::string tail(static_cast<std::size_t>(end - from), '\0');
  const ssize_t got = pread(file_.get(), tail.data(), tail.size(), from);
  tail.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  const std::size_t torn = tail.rfind('\n') + 1;
  if (torn < tail.size() && tail[torn] == '{' &&
      ftruncate(file_.get(), from + static_cast<off_t>(torn)) != 0) {
    throw output_error(fmt::format("{} ends in half a line: {}", path_, write_failure(errno)));
  }
}

void line_file::reopen() {
  file_ = descriptor();
}

void line_file::write(const std::string& line) {
  if (!file_.is_open()) {
    open();
  }
  if (!file_.is_open()) {
    throw output_error(fmt::format("nobody reads from {}", path_));
  }
  if (!rest_.empty()) {
    send(std::exchange(rest_, ""));
  }
  send(line + "\n");
}

void line_file::send(const std::string& text) {
  const off_t before = isRegular_ ? lseek(file_.get(), 0, SEEK_END) : 0;
  const ssize_t written = ::write(file_.get(), text.data(), text.size());
  if (written == static_cast<ssize_t>(text.size())) {
    return;
  }
  const int error = written < 0 ? errno : isRegular_ ? ENOSPC : EAGAIN;
  if (isRegular_) {
    [[maybe_unused]] const int cut =
        ftruncate(file_.get(), before);  // mended at the next start where that fails
  } else if (written > 0) {
    rest_ = text.substr(static_cast<std::size_t>(written));
  }
  if (error == EPIPE) {
    file_ = descriptor();
  }
  throw output_error(error == EAGAIN ? fmt::format("{} is not read fast enough", path_)
                                     : fmt::format("{} can't be written: {}", path_, write_failure(error)));
}

}  // namespace host
