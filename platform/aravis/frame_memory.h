// The memory that the frames of a transfer are received in.
#ifndef PLATFORM_ARAVIS_FRAME_MEMORY_H
#define PLATFORM_ARAVIS_FRAME_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace gige {

// Frames lie one behind the other in large pages, where the system has them: a frame of 4 KiB pages costs a
// look-up for each of hundreds of pages while it is received and again while it is read. Every page was
// written to once, so that none has to be found while a frame comes in.
class frame_memory {
 public:
  frame_memory() = default;
  // Raises std::bad_alloc.
  frame_memory(std::size_t frames, std::size_t frameBytes);

  std::uint8_t* frame(std::size_t at) const { return memory_.get() + at * stride_; }

 private:
  struct freed {
    void operator()(std::uint8_t* memory) const { std::free(memory); }
  };
  std::unique_ptr<std::uint8_t, freed> memory_;
  std::size_t stride_ = 0;
};

}  // namespace gige

#endif
