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

// A buffer is free, queued (a frame that waits for the consumer) or held by the consumer. Nothing is
// allocated after construction. Under the camera's lock.
class frame_ring {
 public:
  struct buffer {
    GEV_BUFFER_OBJECT frame{};
    std::unique_ptr<std::uint8_t[]> pixels;
    picture::picture_settings picture;  // what to draw when the frame is delivered
    bool drawn = false;                 // once at least
  };

  // Raises std::bad_alloc.
  frame_ring(std::size_t count, std::size_t bytesEach);

  bool fits(std::size_t count, std::size_t bytesEach) const {
    return buffers_.size() == count && bytesEach_ == bytesEach;
  }
  // Forgets what was drawn; frames that the consumer holds stay with it.
  void start_over();

  bool has_free() const { return !free_.empty(); }
  bool has_queued() const { return queuedCount_ != 0; }
  std::size_t held() const { return buffers_.size() - free_.size() - queuedCount_; }

  // Queues a free buffer, which there must be, for the caller to fill in.
  buffer& queue();
  // Hands the oldest queued frame, which there must be, to the consumer.
  buffer& deliver();
  // Takes a frame back; false when it is none that the consumer holds.
  bool release(const GEV_BUFFER_OBJECT* frame);
  // Drops all frames that wait.
  void drop_queued();

 private:
  std::size_t bytesEach_;
  std::vector<buffer> buffers_;
  std::vector<char> heldNow_;      // of each buffer
  std::vector<std::size_t> free_;  // the last used is used next, it is in the processor's cache
  std::vector<std::size_t> queue_;
  std::size_t queueHead_ = 0;
  std::size_t queuedCount_ = 0;
};

}  // namespace sim

#endif
