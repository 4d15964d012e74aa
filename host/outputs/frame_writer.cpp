#include "host/outputs/frame_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "core/log.h"
#include "core/time_helpers.h"
#include "host/acquire/thread_log.h"

namespace host {
namespace {

constexpr std::size_t kPoolBytes = std::size_t{64} << 20U;
constexpr std::chrono::seconds kSettleEvery{1};

std::size_t pool_size_for(std::size_t frameBytes) {
  return std::clamp<std::size_t>(kPoolBytes / std::max<std::size_t>(frameBytes, 1), 8, 256);
}

}  // namespace

std::string write_failure(int error) {
  const char* text = std::strerror(error);
  return error == ENOSPC || error == EDQUOT ? fmt::format("the disk is full ({})", text) : text;
}

frame_writer::frame_writer(std::string camera, std::unique_ptr<frame_sink> sink, std::size_t frameBytes,
                           std::uint64_t every)
    : camera_(std::move(camera)),
      sink_(std::move(sink)),
      every_(every),
      poolSize_(pool_size_for(frameBytes)),
      free_(poolSize_) {
  for (stored_frame& frame : free_) {
    frame.pixels.resize(frameBytes);  // touched now, so that no page is missing when a frame comes
  }
  writer_ = std::jthread([this](const std::stop_token& stop) { work(stop); });
}

void frame_writer::stop() {
  writer_.request_stop();
  if (writer_.joinable()) {
    writer_.join();
  }
}

void frame_writer::offer(const cam_frame_info& info, std::uint64_t number,
                         std::span<const std::uint8_t> pixels) {
  if ((number - 1) % every_ != 0 || is_over()) {
    return;
  }
  frame_list taken;
  {
    const std::lock_guard lock(mutex_);
    if (!free_.empty()) {
      taken.splice(taken.end(), free_, free_.begin());
    }
  }
  if (taken.empty()) {
    dropped_.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  stored_frame& frame = taken.front();
  frame.info = info;
  frame.number = number;
  frame.arrivalUs = Time__GetTimeUsec();
  bool isCopied = false;
  try {
    frame.pixels.assign(pixels.begin(), pixels.end());
    isCopied = true;
  } catch (const std::bad_alloc&) {
    LOG(1, "fail: no memory for a frame of %zu bytes. It is not recorded; acquisition goes on",
        pixels.size());
    dropped_.fetch_add(1, std::memory_order_relaxed);
  }
  {
    const std::lock_guard lock(mutex_);
    frame_list& to = isCopied ? waiting_ : free_;
    to.splice(to.end(), taken);
  }
  wake_.notify_one();
}

bool frame_writer::is_idle() const {
  const std::lock_guard lock(mutex_);
  return waiting_.empty() && !isWriting_;
}

output_totals frame_writer::totals() const {
  return {written_.load(std::memory_order_relaxed), dropped_.load(std::memory_order_relaxed),
          bytes_.load(std::memory_order_relaxed)};
}

void frame_writer::work(const std::stop_token& stop) {
  const camera_log_scope scope(camera_);
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested() && !is_over()) {
    frame_list taken;
    if (await_frame(lock, stop)) {
      taken.splice(taken.end(), waiting_, waiting_.begin());
    }
    isWriting_ = !taken.empty();
    lock.unlock();
    if (!taken.empty()) {
      write(taken.front(), stop);
    }
    if (std::chrono::steady_clock::now() >= nextSettle_) {
      settle();
    }
    lock.lock();
    free_.splice(free_.end(), taken);
    isWriting_ = false;
  }
  if (!is_over()) {
    dropped_.fetch_add(waiting_.size(), std::memory_order_relaxed);
  }
  free_.splice(free_.end(), waiting_);
  lock.unlock();
  settle();
}

// False when none came until the sink is to settle, or the writer is to stop.
bool frame_writer::await_frame(std::unique_lock<std::mutex>& lock, const std::stop_token& stop) {
  return wake_.wait_until(lock, stop, nextSettle_, [this] { return !waiting_.empty(); }) &&
         !stop.stop_requested();
}

void frame_writer::write(const stored_frame& frame, const std::stop_token& stop) {
  try {
    bytes_.fetch_add(sink_->write(frame, stop), std::memory_order_relaxed);
    written_.fetch_add(1, std::memory_order_relaxed);
    if (const std::uint64_t failed = std::exchange(failedInRow_, 0); failed > 0) {
      LOG(3, "recording goes on; %lu frames were not recorded", failed);
    }
    isReported_ = false;
  } catch (const output_over& end) {
    LOG(3, "%s: this output ends", end.what());
    isOver_ = true;
  } catch (const std::exception& error) {
    dropped_.fetch_add(1, std::memory_order_relaxed);
    ++failedInRow_;
    report(error.what());
  }
}

void frame_writer::settle() {
  try {
    nextSettle_ = std::chrono::steady_clock::now() + kSettleEvery;
    sink_->settle();
  } catch (const std::exception& error) {
    report(error.what());
  }
}

void frame_writer::report(const char* reason) {
  if (!std::exchange(isReported_, true)) {
    LOG(1, "fail: %s. Frames are not recorded until that is over; acquisition goes on", reason);
  }
}

}  // namespace host
