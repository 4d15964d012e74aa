// Preloaded into a program: lets allocations fail. FAIL_NEW_AT: that one, and all after it. FAIL_NEW_EVERY:
// each so many-th of the threads with the name FAIL_NEW_THREAD.
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>
#include <string_view>

namespace {

long number_of(const char* variable) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? 0 : std::atol(text);
}

bool is_meant_thread() {
  static const char* const meant = std::getenv("FAIL_NEW_THREAD");
  std::array<char, 16> name{};
  return meant != nullptr && pthread_getname_np(pthread_self(), name.data(), name.size()) == 0 &&
         std::string_view(name.data()) == meant;
}

bool is_to_fail() {
  static const long at = std::getenv("FAIL_NEW_AT") == nullptr ? -1 : number_of("FAIL_NEW_AT");
  static const long every = number_of("FAIL_NEW_EVERY");
  static std::atomic<long> count{0};
  if (at >= 0) {
    return count++ >= at;
  }
  return every > 0 && is_meant_thread() && ++count % every == 0;
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
