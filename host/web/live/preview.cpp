#include "host/web/live/preview.h"

#include <algorithm>
#include <new>
#include <utility>

#include "core/time_helpers.h"
#include "host/web/live/body_worker.h"

namespace host {
namespace {

constexpr std::uint64_t kRateSpanUs = 2'000'000;
// The newest one, one of which the viewers' pictures are made, one to write, and one for each body that may
// wait for its turn.
constexpr std::size_t kCopiesMax = 3 + body_worker::kBodiesMax;

}  // namespace

grey_image image_of(const stored_frame& frame) {
  return {frame.pixels, frame.info.width, frame.info.height};
}

std::shared_ptr<stored_frame> preview_source::borrow(const std::shared_ptr<copy_pool>& pool) {
  const auto giveBack = [pool](stored_frame* copy) {
    const std::lock_guard lock(pool->mutex);
    pool->idle.emplace_back(copy);
    --pool->lent;
  };
  stored_frame* copy = nullptr;
  {
    const std::lock_guard lock(pool->mutex);
    if (pool->lent == kCopiesMax) {
      return nullptr;
    }
    pool->idle.reserve(kCopiesMax);  // so that giving back needs no memory
    if (pool->idle.empty()) {
      pool->idle.push_back(std::make_unique<stored_frame>());
    }
    copy = pool->idle.back().release();
    pool->idle.pop_back();
    ++pool->lent;
  }
  return {copy, giveBack};
}

void preview_source::record_arrival(std::uint64_t nowUs) {
  const std::uint64_t missed = missed_ ? missed_() : 0;
  const std::uint64_t before = std::exchange(missedSoFar_, missed);
  const std::uint64_t arrived = arrivalCount_.load(std::memory_order_relaxed);
  arrivalUs_[arrived % kArrivals].store(nowUs, std::memory_order_relaxed);
  missedBefore_[arrived % kArrivals].store(static_cast<std::uint32_t>(missed - before),
                                           std::memory_order_relaxed);
  arrivalCount_.store(arrived + 1, std::memory_order_release);
}

void preview_source::offer(const cam_frame_info& info, std::uint64_t number,
                           std::span<const std::uint8_t> pixels) {
  const std::uint64_t nowUs = nowUs_();
  record_arrival(nowUs);
  if (nowUs >= wantedUntilUs_.load(std::memory_order_relaxed) || nowUs < nextCopyUs_) {
    return;
  }
  nextCopyUs_ = nowUs + kCopyEveryUs;
  try {
    const std::shared_ptr<stored_frame> copy = borrow(pool_);
    if (!copy) {
      return;
    }
    copy->info = info;
    copy->number = number;
    copy->arrivalUs = Time__GetTimeUsec();
    copy->pixels.assign(pixels.begin(), pixels.end());
    shared_frame before = copy;
    const std::lock_guard lock(mutex_);
    newest_.swap(before);
    newestUs_ = nowUs;
  } catch (const std::bad_alloc&) {
    return;  // viewers miss a frame; the run does not
  }
}

shared_frame preview_source::newest() const {
  const std::lock_guard lock(mutex_);
  return newest_ && nowUs_() - newestUs_ <= kFreshUs ? newest_ : nullptr;
}

frame_arrivals preview_source::arrivals_since(std::uint64_t from) const {
  const std::uint64_t end = arrivalCount_.load(std::memory_order_acquire);
  const std::uint64_t oldest = end > kArrivals ? end - kArrivals : 0;
  frame_arrivals result;
  result.from = std::min(std::max(from, oldest), end);
  for (std::uint64_t at = result.from; at < end; ++at) {
    result.all.push_back({arrivalUs_[at % kArrivals].load(std::memory_order_relaxed),
                          missedBefore_[at % kArrivals].load(std::memory_order_relaxed)});
  }
  return result;
}

double preview_source::rate_hz() const {
  const std::uint64_t nowUs = nowUs_();
  const std::uint64_t end = arrivalCount_.load(std::memory_order_acquire);
  const std::uint64_t kept = std::min<std::uint64_t>(end, kArrivals);
  for (std::uint64_t back = 1; back <= kept; ++back) {
    const std::uint64_t timeUs = arrivalUs_[(end - back) % kArrivals].load(std::memory_order_relaxed);
    const std::uint64_t sinceUs = nowUs > timeUs ? nowUs - timeUs : 0;
    if (back > 1 && sinceUs > 0 && (sinceUs >= kRateSpanUs || back == kept)) {
      return 1e6 * static_cast<double>(back - 1) / static_cast<double>(sinceUs);
    }
  }
  return 0;
}

}  // namespace host
