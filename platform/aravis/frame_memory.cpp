#include "platform/aravis/frame_memory.h"

#include <sys/mman.h>

#include <cstring>
#include <new>

namespace gige {
namespace {

constexpr std::size_t cacheLine = 64;
constexpr std::size_t largePage = 2U << 20U;

}  // namespace

frame_memory::frame_memory(std::size_t frames, std::size_t frameBytes)
    : stride_((frameBytes + cacheLine - 1) / cacheLine * cacheLine) {
  const std::size_t bytes = frames * stride_;
  void* memory = nullptr;
  if (posix_memalign(&memory, largePage, bytes) != 0) {
    throw std::bad_alloc();
  }
  memory_.reset(static_cast<std::uint8_t*>(memory));
  static_cast<void>(madvise(memory, bytes, MADV_HUGEPAGE));  // small pages do, too
  std::memset(memory, 0, bytes);
}

}  // namespace gige
