// Figures that one thread writes and any thread reads as a consistent set.
#ifndef PLATFORM_GIGE_STREAM_SNAPSHOT_H
#define PLATFORM_GIGE_STREAM_SNAPSHOT_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace gige {

// A sequence lock: the writer never waits, and a reader that meets a write starts over, which takes
// nanoseconds. One thread at a time writes.
template <std::size_t count>
class snapshot {
 public:
  using figures = std::array<std::uint64_t, count>;

  void write(const figures& of) {
    const std::uint64_t before = writes_.load(std::memory_order_relaxed);
    writes_.store(before + 1, std::memory_order_relaxed);  // odd: under way
    for (std::size_t at = 0; at < count; ++at) {
      words_[at].store(of[at], std::memory_order_release);  // never seen before the odd number is
    }
    writes_.store(before + 2, std::memory_order_release);
  }

  figures read() const {
    figures copy;
    for (;;) {
      const std::uint64_t before = writes_.load(std::memory_order_acquire);
      for (std::size_t at = 0; at < count; ++at) {
        copy[at] = words_[at].load(std::memory_order_acquire);
      }
      if (before % 2 == 0 && writes_.load(std::memory_order_relaxed) == before) {
        return copy;
      }
    }
  }

 private:
  std::atomic<std::uint64_t> writes_{0};
  std::array<std::atomic<std::uint64_t>, count> words_{};
};

}  // namespace gige

#endif
