#include "tests/gige/stream/allocation_count.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> count{0};

}  // namespace

std::size_t allocation_count() {
  return count;
}

// In place of the standard library's, for the whole program.
void* operator new(std::size_t size) {
  ++count;
  void* memory = std::malloc(size == 0 ? 1 : size);
  return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
