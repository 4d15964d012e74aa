#include "host/outputs/video.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <utility>

namespace host {
namespace {

constexpr int kStopCheckMs = 100;

}  // namespace

std::string y4m_header(std::size_t width, std::size_t height, double frameRateHz) {
  return fmt::format("YUV4MPEG2 W{} H{} F{}:1000 Ip A1:1 Cmono XCOLORRANGE=FULL\n", width, height,
                     std::llround(frameRateHz * 1000));
}

y4m_stream::y4m_stream(std::string path, double frameRateHz, bool isOverwriting)
    : path_(std::move(path)), frameRateHz_(frameRateHz) {
  struct stat about {};
  isPipe_ = (path_ == "-" ? fstat(STDOUT_FILENO, &about) : stat(path_.c_str(), &about)) == 0 &&
            !S_ISREG(about.st_mode);
  if (path_ == "-" && isatty(STDOUT_FILENO) == 1) {
    throw output_error("--y4m - writes video to standard output, which is a terminal: send it into a pipe");
  }
  if (path_ == "-" || !isPipe_) {
    open_path(isOverwriting ? O_CREAT | O_TRUNC : O_CREAT | O_EXCL);
  }
}

void y4m_stream::open_path(int flags) {
  file_ = descriptor(path_ == "-" ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                                  : open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK | flags, 0644));
  if (file_.is_open()) {
    return;
  }
  if (errno == EEXIST) {
    throw output_error(fmt::format("--y4m: there is a file {} already; --overwrite replaces it", path_));
  }
  throw output_error(errno == ENXIO ? fmt::format("nobody reads from {} yet", path_)
                                    : fmt::format("{} can't be opened: {}", path_, write_failure(errno)));
}

std::uint64_t y4m_stream::write(const stored_frame& frame, const std::stop_token& stop) {
  if (isBroken_) {
    throw output_error(fmt::format("the video in {} was cut off", path_));
  }
  if (!file_.is_open()) {
    open_path(0);
  }
  std::string head = "FRAME\n";
  if (height_ == 0) {
    head = y4m_header(frame.info.width, frame.info.height, frameRateHz_) + head;
    width_ = frame.info.width;
    height_ = frame.info.height;
  } else if (frame.info.width != width_ || frame.info.height != height_) {
    throw output_error(fmt::format("the video in {} is {}x{} and can't change to {}x{}", path_, width_,
                                   height_, frame.info.width, frame.info.height));
  }
  send(head, stop);
  send({reinterpret_cast<const char*>(frame.pixels.data()), frame.pixels.size()}, stop);
  return head.size() + frame.pixels.size();
}

void y4m_stream::send(std::string_view bytes, const std::stop_token& stop) {
  while (!bytes.empty()) {
    if (stop.stop_requested()) {
      isBroken_ = true;
      throw output_error(fmt::format("the last frame in {} is cut off: its reader did not take it", path_));
    }
    const ssize_t written = isPipe_ ? write_some(file_.get(), bytes, kStopCheckMs)
                                    : ::write(file_.get(), bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      isBroken_ = true;
      if (errno == EPIPE) {
        throw output_over(fmt::format("the reader of {} went away", path_));
      }
      throw output_error(fmt::format("{} can't be written: {}", path_, write_failure(errno)));
    }
    bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
}

}  // namespace host
