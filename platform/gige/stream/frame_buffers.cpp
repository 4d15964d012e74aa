#include "platform/gige/stream/frame_buffers.h"

#include <sys/mman.h>

#include <cstring>
#include <new>

namespace gige {
namespace {

constexpr std::size_t cacheLine = 64;
constexpr std::size_t largePage = 2U << 20U;

}  // namespace

frame_buffers::frame_buffers(std::size_t count, std::size_t bytesEach)
    : count_(count), stride_(stride_of(bytesEach)) {
  const std::size_t bytes = count * stride_;
  void* memory = nullptr;
  if (posix_memalign(&memory, largePage, bytes) != 0) {
    throw std::bad_alloc();
  }
  memory_.reset(static_cast<std::uint8_t*>(memory));
  static_cast<void>(madvise(memory, bytes, MADV_HUGEPAGE));  // small pages will do
  std::memset(memory, 0, bytes);
}

std::size_t frame_buffers::stride_of(std::size_t bytesEach) {
  return (bytesEach + cacheLine - 1) / cacheLine * cacheLine;
}

}  // namespace gige
