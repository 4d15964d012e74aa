#include "host/outputs/image_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <system_error>
#include <utility>

namespace host {
namespace {

namespace fs = std::filesystem;

std::vector<std::uint8_t> encode_png(const stored_frame& frame) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = frame.info.width;
  image.height = frame.info.height;
  image.format = PNG_FORMAT_GRAY;
  image.flags = PNG_IMAGE_FLAG_FAST;  // noise does not compress better with more time
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  std::vector<std::uint8_t> bytes(size);
  if (png_image_write_to_memory(&image, bytes.data(), &size, 0, frame.pixels.data(), 0, nullptr) == 0) {
    throw output_error(fmt::format("a frame can't be made a PNG: {}", image.message));
  }
  bytes.resize(size);
  return bytes;
}

[[noreturn]] void fail(const fs::path& path, int error) {
  throw output_error(fmt::format("{} can't be written: {}", path.string(), write_failure(error)));
}

// False with errno set when not everything could be written.
bool write_all(int file, const void* data, std::size_t size) {
  const auto* from = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = ::write(file, from, size);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    from += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

void write_whole(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
  const fs::path partial = path.parent_path() / ("." + path.filename().string() + ".part");
  const int file = open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) {
    fail(path, errno);
  }
  const bool isWritten = write_all(file, bytes.data(), bytes.size());
  const int writeError = errno;
  const bool isClosed = close(file) == 0;  // some file systems report a full disk only here
  if (!isWritten || !isClosed || std::rename(partial.c_str(), path.c_str()) != 0) {
    const int error = isWritten ? errno : writeError;
    unlink(partial.c_str());
    fail(path, error);
  }
}

// The number after the last one in frames.jsonl; 0 for a new recording.
std::uint64_t next_index(const fs::path& path) {
  if (!fs::is_regular_file(path)) {
    return 0;
  }
  constexpr std::string_view kHead = R"({"index":)";
  std::ifstream file(path);
  std::uint64_t next = 0;
  for (std::string line; std::getline(file, line);) {
    std::uint64_t index = 0;
    if (line.starts_with(kHead) &&
        std::from_chars(line.data() + kHead.size(), line.data() + line.size(), index).ec == std::errc()) {
      next = std::max(next, index + 1);
    }
  }
  return next;
}

}  // namespace

const char* format_name(image_format format) {
  constexpr const char* names[] = {"png", "pgm", "raw"};
  return names[static_cast<std::size_t>(format)];
}

std::vector<std::uint8_t> encode(const stored_frame& frame, image_format format) {
  if (format == image_format::png) {
    return encode_png(frame);
  }
  std::vector<std::uint8_t> bytes;
  if (format == image_format::pgm) {
    const std::string head = fmt::format("P5\n{} {}\n255\n", frame.info.width, frame.info.height);
    bytes.reserve(head.size() + frame.pixels.size());
    bytes.assign(head.begin(), head.end());
  }
  bytes.insert(bytes.end(), frame.pixels.begin(), frame.pixels.end());
  return bytes;
}

image_files::image_files(fs::path directory, image_format format)
    : directory_(std::move(directory)), format_(format) {
  std::error_code error;
  fs::create_directories(directory_, error);
  if (error) {
    fail(directory_, error.value());
  }
  const fs::path index = directory_ / "frames.jsonl";
  next_ = next_index(index);
  index_ = open(index.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (index_ < 0) {
    fail(index, errno);
  }
}

image_files::~image_files() {
  close(index_);
}

std::uint64_t image_files::write(const stored_frame& frame, const std::stop_token&) {
  const std::string name = fmt::format("{:09}.{}", next_, format_name(format_));
  const std::vector<std::uint8_t> bytes = encode(frame, format_);
  write_whole(directory_ / name, bytes);
  try {
    const cam_frame_info& info = frame.info;
    const std::size_t lineBytes = append_line(fmt::format(
        R"({{"index":{},"file":"{}","frame":{},"timestamp_us":{},"arrival_us":{},"exposure_us":{},"gain_db":{:.4f},)"
        R"("width":{},"height":{}}})"
        "\n",
        next_, name, frame.number, info.timestampUs, frame.arrivalUs, info.exposureUs, info.gainDb,
        info.width, info.height));
    ++next_;
    return bytes.size() + lineBytes;
  } catch (const output_error&) {
    fs::remove(directory_ / name);
    throw;
  }
}

std::size_t image_files::append_line(const std::string& line) const {
  const off_t before = lseek(index_, 0, SEEK_END);
  if (!write_all(index_, line.data(), line.size())) {
    const int error = errno;
    if (ftruncate(index_, before) != 0) {
      throw output_error(fmt::format("{} ends in half a line: {}", (directory_ / "frames.jsonl").string(),
                                     write_failure(error)));
    }
    fail(directory_ / "frames.jsonl", error);
  }
  return line.size();
}

}  // namespace host
