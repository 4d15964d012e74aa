// The frame buffers between a camera and its consumer.
#ifndef PLATFORM_SIM_FRAME_RING_H
#define PLATFORM_SIM_FRAME_RING_H

#include <gevapi.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/picture/picture.h"

namespace sim {

// A buffer is free, queued (its frame waits for the consumer) or held by the consumer. Nothing is allocated
// after construction. Used under the camera's lock.
class frame_ring {
 public:
  struct buffer {
    GEV_BUFFER_OBJECT frame{};
    std::unique_ptr<std::uint8_t[]> pixels;
    picture::picture_settings picture;  // drawn when the frame is delivered
    bool isDrawn = false;               // since the transfer started
  };

  // Raises std::bad_alloc.
  frame_ring(std::size_t count, std::size_t bytesEach);

  bool fits(std::size_t count, std::size_t bytesEach) const {
    return buffers_.size() == count && bytesEach_ == bytesEach;
  }
  // For a new transfer: nothing is drawn. The consumer keeps the frames that it holds.
  void start_over();

  bool has_free() const { return !free_.empty(); }
  bool has_queued() const { return queuedCount_ != 0; }
  std::size_t held() const { return buffers_.size() - free_.size() - queuedCount_; }

  // Queues a free buffer, for the caller to fill in. There must be one.
  buffer& queue();
  // Hands the oldest queued frame to the consumer. There must be one.
  buffer& deliver();
  // Takes a frame back. False when the consumer does not hold that frame.
  bool release(const GEV_BUFFER_OBJECT* frame);
  // Frees the buffers of all queued frames.
  void drop_queued();

 private:
  std::size_t take_oldest();  // out of the queue

  std::size_t bytesEach_;
  std::vector<buffer> buffers_;
  std::vector<char> isHeld_;        // of each buffer
  std::vector<std::size_t> free_;   // a stack: the buffer used last is still in the processor's cache
  std::vector<std::size_t> queue_;  // a ring of indices
  std::size_t queueHead_ = 0;
  std::size_t queuedCount_ = 0;
};

}  // namespace sim

#endif
