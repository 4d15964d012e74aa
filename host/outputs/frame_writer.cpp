#include "host/outputs/frame_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "core/log.h"
#include "core/time_helpers.h"
#include "host/acquire/thread_log.h"

namespace host {
namespace {

constexpr std::size_t kPoolBytes = std::size_t{64} << 20U;

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
    : camera_(std::move(camera)), sink_(std::move(sink)), every_(every), slots_(pool_size_for(frameBytes)) {
  for (stored_frame& slot : slots_) {
    slot.pixels.resize(frameBytes);  // touched now, so that no page is missing when a frame comes
    free_.push_back(&slot);
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
  if ((number - 1) % every_ != 0) {
    return;
  }
  stored_frame* slot = nullptr;
  {
    const std::lock_guard lock(mutex_);
    if (!free_.empty()) {
      slot = free_.back();
      free_.pop_back();
    }
  }
  if (slot == nullptr) {
    dropped_.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  slot->info = info;
  slot->number = number;
  slot->arrivalUs = Time__GetTimeUsec();
  slot->pixels.assign(pixels.begin(), pixels.end());
  {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(slot);
  }
  wake_.notify_one();
}

bool frame_writer::is_idle() const {
  const std::lock_guard lock(mutex_);
  return free_.size() == slots_.size();
}

output_totals frame_writer::totals() const {
  return {written_.load(std::memory_order_relaxed), dropped_.load(std::memory_order_relaxed),
          bytes_.load(std::memory_order_relaxed)};
}

void frame_writer::work(const std::stop_token& stop) {
  const camera_log_scope scope(camera_);
  std::unique_lock lock(mutex_);
  while (wake_.wait(lock, stop, [this] { return !waiting_.empty(); }) && !stop.stop_requested()) {
    stored_frame* const frame = waiting_.front();
    waiting_.pop_front();
    lock.unlock();
    write(*frame, stop);
    lock.lock();
    free_.push_back(frame);
  }
  dropped_.fetch_add(waiting_.size(), std::memory_order_relaxed);
}

void frame_writer::write(const stored_frame& frame, const std::stop_token& stop) {
  try {
    bytes_.fetch_add(sink_->write(frame, stop), std::memory_order_relaxed);
    written_.fetch_add(1, std::memory_order_relaxed);
    if (const std::uint64_t failed = std::exchange(failedInRow_, 0); failed > 0) {
      LOG(3, "recording goes on; %lu frames were not recorded", failed);
    }
  } catch (const output_error& error) {
    dropped_.fetch_add(1, std::memory_order_relaxed);
    if (failedInRow_++ == 0) {
      LOG(1, "fail: %s. Frames are not recorded until that is over; acquisition goes on", error.what());
    }
  }
}

}  // namespace host
