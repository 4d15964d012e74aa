#include "host/acquire/monitor.h"

#include <algorithm>
#include <chrono>

namespace host {
namespace {

constexpr float kTemperatureMinC = -300.0F;  // what is not above is no temperature

}  // namespace

std::uint64_t steady_us() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

void camera_monitor::run_started(double periodUs) {
  const std::lock_guard lock(mutex_);
  missed_.run_started(periodUs);
  health_.reopened();
  totals_.periodUs = periodUs;
  totals_.isRunning = true;
  for (std::string* text : {&totals_.givenUp, &totals_.failure, &totals_.advice}) {
    text->clear();
  }
  totals_.phaseUs = steady_us();
  totals_.againUs = 0;
  startUs_ = startUs_.value_or(totals_.phaseUs);
}

void camera_monitor::run_ended() {
  const std::lock_guard lock(mutex_);
  totals_.isRunning = false;
}

void camera_monitor::failed(failure_reason reason) {
  const std::lock_guard lock(mutex_);
  ++totals_.failures;
  ++totals_.failuresInRow;
  ++totals_.failuresByReason.at(static_cast<std::size_t>(reason));
}

void camera_monitor::given_up(const std::string& reason, const std::string& advice) {
  const std::lock_guard lock(mutex_);
  totals_.givenUp = totals_.failure = reason;
  totals_.advice = advice;
  totals_.phaseUs = steady_us();
}

void camera_monitor::pausing(const std::string& reason, const std::string& advice,
                             std::chrono::milliseconds pause) {
  const std::lock_guard lock(mutex_);
  totals_.failure = reason;
  totals_.advice = advice;
  totals_.phaseUs = steady_us();
  totals_.againUs = totals_.phaseUs + static_cast<std::uint64_t>(pause.count()) * 1000;
}

std::optional<std::uint64_t> camera_monitor::arrived(std::uint64_t nowUs, float temperatureC) {
  alive();
  const std::lock_guard lock(mutex_);
  ++totals_.frames;
  totals_.lastFrameUs = nowUs;
  totals_.temperatureC = temperatureC > kTemperatureMinC ? std::optional(temperatureC) : std::nullopt;
  const auto interval = missed_.arrived(nowUs, health_.total() ? health_.total()->frame_id : 0);
  if (interval) {
    intervals_.add(*interval);
  }
  return interval;
}

void camera_monitor::health(const camera_extension_health_record& record) {
  const std::lock_guard lock(mutex_);
  health_.update(record);
}

void camera_monitor::handed_over(const cam_frame_info& info) {
  const std::lock_guard lock(mutex_);
  totals_.exposureUs = info.exposureUs;
  totals_.gainDb = info.gainDb;
  totals_.failuresInRow = 0;
}

void camera_monitor::silent() {
  alive();
  const std::lock_guard lock(mutex_);
  ++totals_.silentWaits;
}

std::uint64_t camera_monitor::missed() const {
  const std::lock_guard lock(mutex_);
  return missed_.count(totals_.lastFrameUs);
}

camera_totals camera_monitor::totals() const {
  const std::uint64_t nowUs = steady_us();
  const std::lock_guard lock(mutex_);
  camera_totals now = totals_;
  now.missed = missed_.count(nowUs);
  now.isMissedEstimate = missed_.is_estimate();
  now.health = health_.total();
  now.elapsedUs = startUs_ ? nowUs - *startUs_ : 0;
  return now;
}

interval_histogram camera_monitor::histogram() const {
  const std::lock_guard lock(mutex_);
  return intervals_;
}

}  // namespace host
