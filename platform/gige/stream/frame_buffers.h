// The memory that frames are received in.
#ifndef PLATFORM_GIGE_STREAM_FRAME_BUFFERS_H
#define PLATFORM_GIGE_STREAM_FRAME_BUFFERS_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace gige {

// Buffers are adjacent, in huge pages where the system has them: a frame in pages of 4 KiB costs hundreds of
// address translations while it is received, and again while it is read. The constructor writes to every
// page, so that no page fault occurs while a frame arrives. Each buffer begins at a cache line.
class frame_buffers {
 public:
  frame_buffers() = default;
  // Raises std::bad_alloc.
  frame_buffers(std::size_t count, std::size_t bytesEach);

  std::size_t count() const { return count_; }
  std::uint8_t* buffer(std::size_t at) const { return memory_.get() + at * stride_; }

  // What a buffer of that size takes.
  static std::size_t stride_of(std::size_t bytesEach);

 private:
  struct freed {
    void operator()(std::uint8_t* memory) const { std::free(memory); }
  };
  std::unique_ptr<std::uint8_t, freed> memory_;
  std::size_t count_ = 0;
  std::size_t stride_ = 0;
};

}  // namespace gige

#endif
