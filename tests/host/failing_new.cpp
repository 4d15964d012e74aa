// Preloaded into a program: lets the allocation fail whose number FAIL_NEW_AT has, and all after it.
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> countdown{-1};

bool is_to_fail() {
  static const bool isCounting = [] {
    const char* const at = std::getenv("FAIL_NEW_AT");
    countdown = at == nullptr ? -1 : std::atol(at);
    return countdown >= 0;
  }();
  return isCounting && --countdown < 0;
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = is_to_fail() ? nullptr : std::malloc(size);
  return memory != nullptr ? memory : throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
