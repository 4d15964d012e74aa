#include "platform/aravis/frame_memory.h"

#include <sys/mman.h>

#include <cstring>
#include <new>

namespace gige {
namespace {

constexpr std::size_t cacheLine = 64;
constexpr std::size_t largePage = 2U << 20U;

constexpr std::size_t rounded_up(std::size_t bytes, std::size_t unit) {
  return (bytes + unit - 1) / unit * unit;
}

}  // namespace

frame_memory::frame_memory(std::size_t frames, std::size_t frameBytes)
    : stride_(rounded_up(frameBytes, cacheLine)) {
  const std::size_t bytes = rounded_up(frames * stride_, largePage);
  memory_.reset(static_cast<std::uint8_t*>(std::aligned_alloc(largePage, bytes)));
  if (memory_ == nullptr) {
    throw std::bad_alloc();
  }
  static_cast<void>(madvise(memory_.get(), bytes, MADV_HUGEPAGE));  // small pages do, too
  std::memset(memory_.get(), 0, bytes);
}

}  // namespace gige
