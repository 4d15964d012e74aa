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

image_files::image_files(std::filesystem::path folder, image_format format, const keep_limits& keep)
    : format_(format),
      keep_(keep),
      folder_(std::move(folder)),
      index_(folder_),
      next_(std::max(index_.next_number(), folder_.next_number())),
      imageBytes_(keep.bytes ? index_.image_bytes() : 0) {}

std::uint64_t image_files::write(const stored_frame& frame, const std::stop_token&) {
  const std::vector<std::uint8_t> bytes = encode(frame, format_);
  make_room(bytes.size());
  std::string name = image_name(next_, format_);
  while (!folder_.add(name, bytes)) {
    name = image_name(++next_, format_);
  }
  const cam_frame_info& info = frame.info;
  const std::string line = fmt::format(
      R"({{"index":{},"file":"{}","bytes":{},"frame":{},"timestamp_us":{},"arrival_us":{},"exposure_us":{},)"
      R"("gain_db":{:.4f},"width":{},"height":{}}})"
      "\n",
      next_, name, bytes.size(), frame.number, info.timestampUs, frame.arrivalUs, info.exposureUs,
      info.gainDb, info.width, info.height);
  try {
    index_.append(line);
  } catch (const output_error&) {
    folder_.remove(name);  // an image without its line is none
    throw;
  }
  ++next_;
  imageBytes_ += bytes.size();
  isSettled_ = false;
  return bytes.size() + line.size();
}

void image_files::settle() {
  make_room(0);
  if (!isSettled_) {
    index_.sync();
    folder_.sync();
    isSettled_ = true;
  }
}

// Removes what the limits do not allow beside an image of that size.
void image_files::make_room(std::uint64_t bytes) {
  if (!keep_.age && !keep_.bytes && !keep_.freeBytes) {
    return;
  }
  for (auto oldest = index_.oldest(); oldest && is_beyond(*oldest, bytes); oldest = index_.oldest()) {
    if (!folder_.remove(oldest->file)) {
      throw output_error(fmt::format("{} is beyond --keep and can't be removed: {}",
                                     (folder_.path() / oldest->file).string(), write_failure(errno)));
    }
    imageBytes_ -= std::min(imageBytes_, oldest->bytes);
    index_.drop_oldest();
  }
  if (keep_.freeBytes && bytes > 0 && folder_.free_bytes() < *keep_.freeBytes + bytes) {
    throw output_error(
        fmt::format("{}: --keep wants {} bytes left free, and nothing of this camera can go for it",
                    folder_.path().string(), *keep_.freeBytes));
  }
}

bool image_files::is_beyond(const indexed_frame& oldest, std::uint64_t bytes) const {
  if (keep_.age && oldest.arrivalUs + static_cast<std::uint64_t>(keep_.age->count()) < Time__GetTimeUsec()) {
    return true;
  }
  return (keep_.bytes && imageBytes_ + bytes > *keep_.bytes) ||
         (keep_.freeBytes && folder_.free_bytes() < *keep_.freeBytes + bytes);
}

}  // namespace host
