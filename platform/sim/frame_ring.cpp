#include "platform/sim/frame_ring.h"

#include <algorithm>

namespace sim {

frame_ring::frame_ring(std::size_t count, std::size_t bytesEach)
    : bytesEach_(bytesEach), buffers_(count), isHeld_(count), queue_(count) {
  free_.reserve(count);
  for (std::size_t index = count; index-- > 0;) {
    buffers_[index].pixels = std::make_unique_for_overwrite<std::uint8_t[]>(bytesEach);
    free_.push_back(index);
  }
}

void frame_ring::start_over() {
  for (buffer& each : buffers_) {
    each.isDrawn = false;
  }
}

frame_ring::buffer& frame_ring::queue() {
  const std::size_t index = free_.back();
  free_.pop_back();
  queue_[(queueHead_ + queuedCount_++) % queue_.size()] = index;
  return buffers_[index];
}

std::size_t frame_ring::take_oldest() {
  const std::size_t index = queue_[queueHead_];
  queueHead_ = (queueHead_ + 1) % queue_.size();
  --queuedCount_;
  return index;
}

frame_ring::buffer& frame_ring::deliver() {
  const std::size_t index = take_oldest();
  isHeld_[index] = 1;
  return buffers_[index];
}

bool frame_ring::release(const GEV_BUFFER_OBJECT* frame) {
  const auto found = std::find_if(buffers_.begin(), buffers_.end(),
                                  [=](const buffer& each) { return &each.frame == frame; });
  const auto index = static_cast<std::size_t>(found - buffers_.begin());
  if (found == buffers_.end() || isHeld_[index] == 0) {
    return false;
  }
  isHeld_[index] = 0;
  free_.push_back(index);
  return true;
}

void frame_ring::drop_queued() {
  while (has_queued()) {
    free_.push_back(take_oldest());
  }
}

}  // namespace sim
