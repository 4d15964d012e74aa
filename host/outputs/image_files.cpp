#include "host/outputs/image_files.h"

#include <fmt/format.h>
#include <png.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "core/time_helpers.h"

namespace host {
namespace {

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

std::string image_name(std::uint64_t number, image_format format) {
  return fmt::format("{:09}.{}", number, format_name(format));
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

image_files::recording::recording(const std::filesystem::path& path, folder_origin origin, bool isCounting)
    : folder(path, origin),
      index(folder),
      next(std::max(index.next_number(), folder.next_number())),
      imageBytes(isCounting ? index.image_bytes() : 0) {}

image_files::image_files(std::filesystem::path folder, image_format format, const keep_limits& keep)
    : path_(std::move(folder)), format_(format), keep_(keep) {
  recording_.emplace(path_, folder_origin::made, keep_.bytes.has_value());
}

std::uint64_t image_files::write(const stored_frame& frame, const std::stop_token&) {
  if (std::exchange(hasFailed_, true)) {
    reopen_if_replaced();
  }
  const std::uint64_t written = add(frame);
  hasFailed_ = false;
  return written;
}

void image_files::reopen_if_replaced() {
  if (recording_ && recording_->folder.is_replaced()) {
    recording_.reset();
  }
  if (!recording_) {
    recording_.emplace(path_, folder_origin::existing, keep_.bytes.has_value());
  }
}

std::uint64_t image_files::add(const stored_frame& frame) {
  const std::vector<std::uint8_t> bytes = encode(frame, format_);
  make_room(bytes.size());
  recording& to = *recording_;
  std::string name = image_name(to.next, format_);
  while (!to.folder.add(name, bytes)) {
    name = image_name(++to.next, format_);
  }
  const cam_frame_info& info = frame.info;
  const std::string line = fmt::format(
      R"({{"index":{},"file":"{}","bytes":{},"frame":{},"timestamp_us":{},"arrival_us":{},"exposure_us":{},)"
      R"("gain_db":{:.4f},"width":{},"height":{}}})"
      "\n",
      to.next, name, bytes.size(), frame.number, info.timestampUs, frame.arrivalUs, info.exposureUs,
      info.gainDb, info.width, info.height);
  try {
    to.index.append(line);
  } catch (const output_error&) {
    to.folder.remove(name);  // an image without its line is none
    throw;
  }
  ++to.next;
  to.imageBytes += bytes.size();
  to.isSettled = false;
  return bytes.size() + line.size();
}

void image_files::settle() {
  if (!recording_) {
    return;
  }
  make_room(0);
  if (!recording_->isSettled) {
    recording_->index.sync();
    recording_->folder.sync();
    recording_->isSettled = true;
  }
}

// Removes what the limits do not allow beside an image of that size.
void image_files::make_room(std::uint64_t bytes) {
  if (!keep_.age && !keep_.bytes && !keep_.freeBytes) {
    return;
  }
  for (auto oldest = recording_->index.oldest(); oldest && is_beyond(*oldest, bytes);
       oldest = recording_->index.oldest()) {
    if (!recording_->folder.remove(oldest->file)) {
      throw output_error(fmt::format("{} is beyond --keep and can't be removed: {}",
                                     (recording_->folder.path() / oldest->file).string(),
                                     write_failure(errno)));
    }
    recording_->imageBytes -= std::min(recording_->imageBytes, oldest->bytes);
    recording_->index.drop_oldest();
  }
  if (keep_.freeBytes && bytes > 0 && recording_->folder.free_bytes() < *keep_.freeBytes + bytes) {
    throw output_error(
        fmt::format("{}: --keep wants {} bytes left free, and nothing of this camera can go for it",
                    recording_->folder.path().string(), *keep_.freeBytes));
  }
}

bool image_files::is_beyond(const indexed_frame& oldest, std::uint64_t bytes) const {
  if (keep_.age && oldest.arrivalUs + static_cast<std::uint64_t>(keep_.age->count()) < Time__GetTimeUsec()) {
    return true;
  }
  return (keep_.bytes && recording_->imageBytes + bytes > *keep_.bytes) ||
         (keep_.freeBytes && recording_->folder.free_bytes() < *keep_.freeBytes + bytes);
}

}  // namespace host
