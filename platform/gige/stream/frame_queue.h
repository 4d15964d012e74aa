// Frames between the thread that receives them and the consumer.
#ifndef PLATFORM_GIGE_STREAM_FRAME_QUEUE_H
#define PLATFORM_GIGE_STREAM_FRAME_QUEUE_H

#include <gevapi.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>

#include "platform/gige/stream/frame_buffers.h"

namespace gige {

// A buffer is free, lent to the receiver, waiting with a whole frame, or out with the consumer. A broken
// frame is announced without a buffer, so that it takes none from whole frames.
//
// All functions may be called from any thread. The lock is held briefly and nothing is allocated under it, so
// that the receiver never waits for a consumer.
class frame_queue {
 public:
  // Replaces the buffers; frames in the old ones become invalid. At most `announced` broken frames wait;
  // further ones are not announced. Raises std::bad_alloc and changes nothing then. Not to be called while a
  // transfer runs.
  void hold(frame_buffers buffers, std::size_t announced);
  // Not to be called during `hold`.
  std::size_t buffer_count() const { return buffers_.count(); }

  // From now on `wait` gives frames, `frames` of them at most.
  void open(std::uint64_t frames);
  // Ends all waits at once, with ABORTED, and drops the frames that wait. False if the queue is closed
  // already.
  bool close();
  // Ends all waits at once, with DEVICE_LOST, and all later waits as well.
  void lose();
  bool running() const;

  // For the receiver. `lend` gives a free buffer, or nullptr; `take_back` takes it back unused. `deliver`
  // takes it back with a whole frame, whose `address` is the buffer, or announces a broken frame, whose
  // `address` is null. It drops frames beyond those that `open` allows.
  std::uint8_t* lend();
  void take_back(const std::uint8_t* buffer);
  void deliver(const GEV_BUFFER_OBJECT& frame);

  // For the consumer; frame_stream.h says how they end.
  GEV_STATUS wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs);
  GEV_STATUS release(const GEV_BUFFER_OBJECT* frame);

 private:
  struct slot {
    std::uint8_t* buffer = nullptr;  // null in a slot for broken frames
    GEV_BUFFER_OBJECT frame{};
  };
  using slots = std::list<slot>;  // a slot moves from list to list without allocation

  slots::iterator lent_at(const std::uint8_t* buffer);
  void give_back(slots& from, slots::iterator which);
  GEV_STATUS hand_over(GEV_BUFFER_OBJECT** frame);

  frame_buffers buffers_;

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  // Under the lock.
  slots free_;  // the last used is used next, it is in the processor's cache
  slots freeAnnouncements_;
  slots lent_;
  slots waiting_;
  slots out_;
  bool running_ = false;
  bool lost_ = false;
  bool lossIsReported_ = false;
  std::uint64_t framesLeft_ = 0;
  std::uint64_t stops_ = 0;  // how often it was closed
};

}  // namespace gige

#endif
