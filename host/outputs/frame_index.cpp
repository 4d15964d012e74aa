#include "host/outputs/frame_index.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/outputs/frame_writer.h"

namespace host {
namespace {

constexpr const char* kName = "frames.jsonl";
constexpr off_t kLineMax = 1024;  // several times what a line takes
constexpr off_t kBlock = 1 << 20;
constexpr off_t kCompactFrom = 16 << 10;  // a shorter index is left as it is

// What a line says; none when it is no line of an index.
std::optional<indexed_frame> parse_line(const std::string& line) {
  const auto json = nlohmann::json::parse(line, nullptr, false);
  const auto number = [&](const char* key) {
    const auto found = json.find(key);
    return found != json.end() && found->is_number_unsigned() ? std::optional(found->get<std::uint64_t>())
                                                              : std::nullopt;
  };
  if (!json.is_object() || !number("index") || !json.contains("file") || !json["file"].is_string() ||
      json["file"].get_ref<const std::string&>().find('/') != std::string::npos) {
    return std::nullopt;
  }
  return indexed_frame{.number = *number("index"),
                       .file = json["file"],
                       .arrivalUs = number("arrival_us").value_or(0),
                       .bytes = number("bytes").value_or(0)};
}

}  // namespace

frame_index::frame_index(recording_folder& folder)
    : folder_(folder), file_(folder.open(kName, O_RDWR | O_CREAT | O_APPEND)) {
  struct stat about {};
  if (!file_.is_open() || fstat(file_.get(), &about) != 0) {
    fail(errno);
  }
  if (!S_ISREG(about.st_mode)) {
    throw output_error(fmt::format("{} is no file", (folder_.path() / kName).string()));
  }
  mend();
}

void frame_index::mend() {
  const off_t whole = size();
  const std::string tail = read(std::max<off_t>(whole - kLineMax, 0), whole);
  const std::size_t newline = tail.rfind('\n');
  const std::size_t torn = newline == std::string::npos ? tail.size() : tail.size() - newline - 1;
  const bool isOurs = tail.empty() || tail.front() == '{' || tail.front() == '\0';
  if (newline == std::string::npos && (whole > kLineMax || !isOurs)) {
    throw output_error(fmt::format("{} has no lines of a recording", (folder_.path() / kName).string()));
  }
  cut(whole - static_cast<off_t>(torn));
  for (std::string line = last_line(); !line.empty(); line = last_line()) {
    const auto frame = parse_line(line);
    if (!frame) {
      throw output_error(fmt::format("{} ends with a line that is not of a recording: {}",
                                     (folder_.path() / kName).string(), line));
    }
    if (folder_.has(frame->file)) {
      return;
    }
    cut(size() - static_cast<off_t>(line.size()) - 1);
  }
}

void frame_index::append(const std::string& line) {
  const off_t before = size();
  if (!write_all(file_.get(), line.data(), line.size())) {
    const int error = errno;
    cut(before);
    fail(error);
  }
}

std::uint64_t frame_index::next_number() const {
  const auto last = parse_line(last_line());
  return last ? last->number + 1 : 0;
}

std::uint64_t frame_index::image_bytes() const {
  std::uint64_t bytes = 0;
  std::string rest;
  const off_t end = size();
  for (off_t at = oldestAt_; at < end; at += kBlock) {
    rest += read(at, std::min(at + kBlock, end));
    std::size_t start = 0;
    for (std::size_t stop = 0; (stop = rest.find('\n', start)) != std::string::npos; start = stop + 1) {
      const auto frame = parse_line(rest.substr(start, stop - start));
      bytes += frame && folder_.has(frame->file) ? frame->bytes : 0;
    }
    rest.erase(0, start);
  }
  return bytes;
}

std::optional<indexed_frame> frame_index::oldest() {
  while (oldestAt_ < size()) {
    const std::string line = line_at(oldestAt_);
    if (auto frame = parse_line(line); frame && folder_.has(frame->file)) {
      return frame;
    }
    oldestAt_ += static_cast<off_t>(line.size()) + 1;
  }
  return std::nullopt;
}

void frame_index::drop_oldest() {
  oldestAt_ += static_cast<off_t>(line_at(oldestAt_).size()) + 1;
  if (oldestAt_ >= kCompactFrom && oldestAt_ * 2 >= size()) {
    compact();
  }
}

// The lines that are left, under the name of the index.
void frame_index::compact() {
  descriptor fresh = folder_.open_partial(kName);
  const off_t end = size();
  for (off_t at = oldestAt_; at < end; at += kBlock) {
    const std::string block = read(at, std::min(at + kBlock, end));
    if (!write_all(fresh.get(), block.data(), block.size())) {
      fail(errno);
    }
  }
  folder_.replace(kName, std::move(fresh));
  file_ = folder_.open(kName, O_RDWR | O_APPEND);
  if (!file_.is_open()) {
    fail(errno);
  }
  oldestAt_ = 0;
}

void frame_index::sync() {
  if (fdatasync(file_.get()) != 0) {
    fail(errno);
  }
}

off_t frame_index::size() const {
  const off_t end = lseek(file_.get(), 0, SEEK_END);
  if (end < 0) {
    fail(errno);
  }
  return end;
}

std::string frame_index::read(off_t from, off_t to) const {
  std::string bytes(static_cast<std::size_t>(to - from), '\0');
  std::size_t got = 0;
  while (got < bytes.size()) {
    const ssize_t now =
        pread(file_.get(), bytes.data() + got, bytes.size() - got, from + static_cast<off_t>(got));
    if (now < 0 && errno != EINTR) {
      fail(errno);
    }
    if (now == 0) {
      break;
    }
    got += static_cast<std::size_t>(std::max<ssize_t>(now, 0));
  }
  bytes.resize(got);
  return bytes;
}

// Without its newline; empty at the end.
std::string frame_index::line_at(off_t start) const {
  const std::string text = read(start, std::min(start + kLineMax, size()));
  return text.substr(0, text.find('\n'));
}

std::string frame_index::last_line() const {
  const off_t end = size();
  std::string text = read(std::max<off_t>(end - kLineMax, 0), end);
  if (!text.empty()) {
    text.pop_back();  // its newline
  }
  return text.substr(text.rfind('\n') + 1);
}

void frame_index::cut(off_t size) {
  if (ftruncate(file_.get(), size) != 0) {
    throw output_error(
        fmt::format("{} ends in half a line: {}", (folder_.path() / kName).string(), write_failure(errno)));
  }
}

void frame_index::fail(int error) const {
  throw output_error(
      fmt::format("{} can't be used: {}", (folder_.path() / kName).string(), write_failure(error)));
}

}  // namespace host
