#include "platform/gige/stream/frame_queue.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace gige {
namespace {

using std::chrono::milliseconds;

// A consumer that waits for frames of a lost camera again and again must not keep a processor busy.
constexpr milliseconds lostWait(100);

}  // namespace

void frame_queue::hold(frame_buffers buffers, std::size_t announced) {
  slots free(buffers.count());
  slots announcements(announced);
  std::size_t at = 0;
  for (slot& each : free) {
    each.buffer = buffers.buffer(at++);
  }
  const std::scoped_lock lock(mutex_);
  buffers_ = std::move(buffers);
  free_ = std::move(free);
  freeAnnouncements_ = std::move(announcements);
  lent_.clear();
  waiting_.clear();
  out_.clear();
}

void frame_queue::open(std::uint64_t frames) {
  const std::scoped_lock lock(mutex_);
  running_ = true;
  framesLeft_ = frames;
}

bool frame_queue::close() {
  {
    const std::scoped_lock lock(mutex_);
    if (!std::exchange(running_, false)) {
      return false;
    }
    ++stops_;
    while (!waiting_.empty()) {
      give_back(waiting_, waiting_.begin());
    }
  }
  wake_.notify_all();
  return true;
}

void frame_queue::lose() {
  {
    const std::scoped_lock lock(mutex_);
    lost_ = true;
  }
  wake_.notify_all();
}

bool frame_queue::running() const {
  const std::scoped_lock lock(mutex_);
  return running_;
}

// ---- The receiver's side

std::uint8_t* frame_queue::lend() {
  const std::scoped_lock lock(mutex_);
  if (free_.empty()) {
    return nullptr;
  }
  lent_.splice(lent_.begin(), free_, free_.begin());
  return lent_.front().buffer;
}

void frame_queue::take_back(const std::uint8_t* buffer) {
  const std::scoped_lock lock(mutex_);
  give_back(lent_, lent_at(buffer));
}

void frame_queue::deliver(const GEV_BUFFER_OBJECT& frame) {
  {
    const std::scoped_lock lock(mutex_);
    const bool whole = frame.address != nullptr;
    slots& from = whole ? lent_ : freeAnnouncements_;
    if (from.empty()) {
      return;  // enough broken frames wait already
    }
    const auto which = whole ? lent_at(frame.address) : from.begin();
    if (!running_ || framesLeft_ == 0) {
      give_back(from, which);
      return;
    }
    --framesLeft_;
    which->frame = frame;
    waiting_.splice(waiting_.end(), from, which);
  }
  wake_.notify_one();
}

frame_queue::slots::iterator frame_queue::lent_at(const std::uint8_t* buffer) {
  return std::find_if(lent_.begin(), lent_.end(), [=](const slot& each) { return each.buffer == buffer; });
}

void frame_queue::give_back(slots& from, slots::iterator which) {
  slots& home = which->buffer == nullptr ? freeAnnouncements_ : free_;
  home.splice(home.begin(), from, which);
}

// ---- The consumer's side

GEV_STATUS frame_queue::wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs) {
  *frame = nullptr;
  const auto deadline = std::chrono::steady_clock::now() + milliseconds(timeoutMs);
  std::unique_lock lock(mutex_);
  const std::uint64_t stopsBefore = stops_;
  for (bool late = timeoutMs == 0;;) {
    if (lost_) {
      if (std::exchange(lossIsReported_, true)) {
        wake_.wait_for(lock, std::min(lostWait, milliseconds(timeoutMs)));
      }
      return GEVLIB_ERROR_DEVICE_LOST;
    }
    if (stops_ != stopsBefore) {
      return GEVLIB_ERROR_ABORTED;
    }
    if (!waiting_.empty()) {
      return hand_over(frame);
    }
    if (late) {
      return GEVLIB_ERROR_TIME_OUT;
    }
    late = wake_.wait_until(lock, deadline) == std::cv_status::timeout;
  }
}

GEV_STATUS frame_queue::hand_over(GEV_BUFFER_OBJECT** frame) {
  out_.splice(out_.begin(), waiting_, waiting_.begin());
  *frame = &out_.front().frame;
  return out_.front().frame.status;
}

GEV_STATUS frame_queue::release(const GEV_BUFFER_OBJECT* frame) {
  const std::scoped_lock lock(mutex_);
  const auto which =
      std::find_if(out_.begin(), out_.end(), [=](const slot& each) { return &each.frame == frame; });
  if (which == out_.end()) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  give_back(out_, which);
  return GEVLIB_OK;
}

}  // namespace gige
