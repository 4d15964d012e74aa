// The newest frame of a camera for its viewers, and the arrivals of the last minute.
#ifndef HOST_WEB_LIVE_PREVIEW_H
#define HOST_WEB_LIVE_PREVIEW_H

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "host/acquire/camera_status.h"
#include "host/acquire/frame_taker.h"
#include "host/outputs/frame_writer.h"
#include "host/web/live/grey_image.h"

namespace host {

/// A copy that all viewers share; never written again.
using shared_frame = std::shared_ptr<const stored_frame>;

/// Its pixels; valid as long as the frame.
grey_image image_of(const stored_frame& frame);

/// One frame's arrival.
struct frame_arrival {
  std::uint64_t timeUs = 0;  ///< steady_us
  std::uint32_t missed = 0;  ///< frames missed between the frame before and this one
};

/// Arrivals in a row; `from` counts those before the first of them.
struct frame_arrivals {
  std::uint64_t from = 0;
  std::vector<frame_arrival> all;
};

/// Gets every frame of one camera from its acquisition thread. Copies a frame at most ten times a second, and
/// only while somebody looks. A frame that is not copied costs a reading of the clock and of the
/// counter. All functions but `offer` may be called on any thread.
class preview_source final : public frame_taker {
 public:
  static constexpr std::uint64_t kCopyEveryUs = 100'000;
  static constexpr std::uint64_t kRequestUs = 3'000'000;
  static constexpr std::uint64_t kFreshUs = 3'000'000;
  static constexpr std::size_t kArrivals = 16'384;  ///< a minute at 270 Hz

  using counter = std::function<std::uint64_t()>;

  /// `missed` gives the frames missed so far and is called on the acquisition thread; empty: none are.
  /// `nowUs` gives microseconds of the monotonic clock.
  explicit preview_source(counter missed = {}, std::uint64_t (*nowUs)() = steady_us)
      : missed_(std::move(missed)), nowUs_(nowUs) {}

  void offer(const cam_frame_info& info, std::uint64_t number, std::span<const std::uint8_t> pixels) override;

  /// Has frames copied for the next `kRequestUs`. Whoever looks for longer calls it again.
  void request_copies() { wantedUntilUs_.store(nowUs_() + kRequestUs, std::memory_order_relaxed); }

  /// The frame that was copied last. Null when that is longer ago than `kFreshUs`.
  shared_frame newest() const;

  /// Frames a second over the last two seconds, or since the last frame but one where frames come more
  /// slowly.
  double rate_hz() const;

  /// The arrivals after the first `from` ones, as far as the last `kArrivals` go back.
  frame_arrivals arrivals_since(std::uint64_t from) const;

 private:
  // Copies that no viewer has, for the next frames.
  struct copy_pool {
    std::mutex mutex;
    std::vector<std::unique_ptr<stored_frame>> idle;
    std::size_t lent = 0;
  };
  // Null when viewers have too many.
  static std::shared_ptr<stored_frame> borrow(const std::shared_ptr<copy_pool>& pool);

  void record_arrival(std::uint64_t nowUs);

  const counter missed_;
  std::uint64_t (*const nowUs_)();
  std::atomic<std::uint64_t> wantedUntilUs_{0};
  std::atomic<std::uint64_t> arrivalCount_{0};
  std::array<std::atomic<std::uint64_t>, kArrivals> arrivalUs_{};  // a ring
  std::array<std::atomic<std::uint32_t>, kArrivals> missedBefore_{};

  // The acquisition thread's.
  std::uint64_t missedSoFar_ = 0;
  std::uint64_t nextCopyUs_ = 0;

  std::shared_ptr<copy_pool> pool_ = std::make_shared<copy_pool>();  // outlived by no copy

  mutable std::mutex mutex_;  // held for the length of a pointer's copy
  shared_frame newest_;
  std::uint64_t newestUs_ = 0;
};

}  // namespace host

#endif
