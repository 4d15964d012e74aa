#include "host/acquire/monitor.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace host {
namespace {

// A gap within so many frames after a sweep is put down to it.
constexpr std::uint64_t kFramesOfSweepGap = 10;
constexpr float kTemperatureMinC = -300.0F;  // what is not above is no temperature

}  // namespace

bool shows(const cam_frame_info& info, const light_settings& asked) {
  const auto near = [](float seen, const std::optional<float>& wanted, float tolerance) {
    return !wanted || std::abs(seen - *wanted) <= tolerance;
  };
  return near(info.exposureUs, asked.exposureUs, asked.exposureUs.value_or(0) * 0.01F) &&
         near(info.gainDb, asked.gainDb, 0.1F);
}

std::uint64_t steady_us() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

void camera_monitor::run_started(const std::vector<std::string>& sweepNames, double periodUs) {
  const std::lock_guard lock(mutex_);
  const bool isSame =
      std::equal(sweeps_.begin(), sweeps_.end(), sweepNames.begin(), sweepNames.end(),
                 [](const sweep_outcome& each, const std::string& name) { return each.name == name; });
  if (!isSame) {
    sweeps_.clear();
    for (const std::string& name : sweepNames) {
      sweeps_.push_back({.name = name});
    }
  }
  intervals_.set_period(periodUs);
  totals_.isRunning = true;
  runStartUs_ = steady_us();
}

void camera_monitor::run_ended() {
  const std::lock_guard lock(mutex_);
  intervals_.interrupt();
  totals_.missed = intervals_.missed();
  totals_.isRunning = false;
  totals_.runningUs += steady_us() - runStartUs_;
  watch_.reset();
}

void camera_monitor::failed() {
  const std::lock_guard lock(mutex_);
  ++totals_.failures;
  ++totals_.failuresInRow;
}

void camera_monitor::arrived(std::uint64_t nowUs, float temperatureC) {
  alive();
  const std::lock_guard lock(mutex_);
  ++totals_.frames;
  totals_.lastFrameUs = nowUs;
  totals_.temperatureC = temperatureC > kTemperatureMinC ? std::optional(temperatureC) : std::nullopt;
  const auto interval = intervals_.arrived(nowUs);
  totals_.missed = intervals_.missed();
  if (watch_ && interval && ++watch_->arrivals <= kFramesOfSweepGap) {
    std::uint64_t& longest = sweeps_[watch_->step.index].longestGapUs;
    longest = std::max(longest, *interval);
  }
}

void camera_monitor::handed_over(const cam_frame_info& info) {
  const std::lock_guard lock(mutex_);
  totals_.exposureUs = info.exposureUs;
  totals_.gainDb = info.gainDb;
  totals_.failuresInRow = 0;
  if (watch_ && !watch_->isShown) {
    ++watch_->frames;
    watch_->isShown = shows(info, watch_->step.settings);
    if (watch_->isShown) {
      sweep_outcome& outcome = sweeps_[watch_->step.index];
      ++outcome.shown;
      outcome.framesMost = std::max(outcome.framesMost, watch_->frames);
    }
  }
}

void camera_monitor::silent() {
  alive();
  const std::lock_guard lock(mutex_);
  ++totals_.silentWaits;
}

void camera_monitor::sweep_applied(const sweep_step& step) {
  const std::lock_guard lock(mutex_);
  ++sweeps_[step.index].applied;
  watch_ = watch{.step = step};
}

camera_totals camera_monitor::totals() const {
  const std::lock_guard lock(mutex_);
  camera_totals now = totals_;
  if (now.isRunning) {
    now.runningUs += steady_us() - runStartUs_;
  }
  return now;
}

interval_histogram camera_monitor::histogram() const {
  const std::lock_guard lock(mutex_);
  return intervals_.histogram();
}

std::vector<sweep_outcome> camera_monitor::sweeps() const {
  const std::lock_guard lock(mutex_);
  return sweeps_;
}

}  // namespace host
