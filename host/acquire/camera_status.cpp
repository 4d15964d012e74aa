#include "host/acquire/camera_status.h"

#include <algorithm>
#include <chrono>

namespace host {
namespace {

constexpr float kTemperatureMinC = -300.0F;  // what is not above is no temperature

}  // namespace

std::optional<float> temperature_of(float sensorTempC) {
  return sensorTempC > kTemperatureMinC ? std::optional(sensorTempC) : std::nullopt;
}

void camera_status_keeper::run_started(double periodUs) {
  const std::lock_guard lock(mutex_);
  missed_.run_started(periodUs);
  health_.reopened();
  status_.periodUs = periodUs;
  status_.isRunning = true;
  for (std::string* text : {&status_.givenUp, &status_.failure, &status_.advice}) {
    text->clear();
  }
  status_.phaseUs = steady_us();
  status_.againUs = 0;
  startUs_ = startUs_.value_or(status_.phaseUs);
}

void camera_status_keeper::run_ended() {
  const std::lock_guard lock(mutex_);
  status_.isRunning = false;
}

void camera_status_keeper::failed(failure_reason reason) {
  const std::lock_guard lock(mutex_);
  ++status_.failures;
  ++status_.failuresInRow;
  ++status_.failuresByReason.at(static_cast<std::size_t>(reason));
}

void camera_status_keeper::given_up(const std::string& reason, const std::string& advice) {
  const std::lock_guard lock(mutex_);
  status_.givenUp = status_.failure = reason;
  status_.advice = advice;
  status_.phaseUs = steady_us();
}

void camera_status_keeper::pausing(const std::string& reason, const std::string& advice,
                                   std::chrono::milliseconds pause) {
  const std::lock_guard lock(mutex_);
  status_.failure = reason;
  status_.advice = advice;
  status_.phaseUs = steady_us();
  status_.againUs = status_.phaseUs + static_cast<std::uint64_t>(pause.count()) * 1000;
}

std::optional<std::uint64_t> camera_status_keeper::arrived(std::uint64_t nowUs, float temperatureC) {
  alive();
  const std::lock_guard lock(mutex_);
  ++status_.frames;
  status_.lastFrameUs = nowUs;
  status_.temperatureC = temperature_of(temperatureC);
  const auto interval = missed_.arrived(nowUs, health_.total() ? health_.total()->frame_id : 0);
  if (interval) {
    intervals_.add(*interval);
  }
  return interval;
}

void camera_status_keeper::health(const camera_extension_health_record& record) {
  const std::lock_guard lock(mutex_);
  health_.update(record);
}

void camera_status_keeper::handed_over(const cam_frame_info& info) {
  const std::lock_guard lock(mutex_);
  status_.exposureUs = info.exposureUs;
  status_.gainDb = info.gainDb;
  status_.failuresInRow = 0;
}

void camera_status_keeper::silent() {
  alive();
  const std::lock_guard lock(mutex_);
  ++status_.silentWaits;
}

std::uint64_t camera_status_keeper::missed() const {
  const std::lock_guard lock(mutex_);
  return missed_.count(status_.lastFrameUs);
}

camera_status camera_status_keeper::now() const {
  const std::uint64_t nowUs = steady_us();
  const std::lock_guard lock(mutex_);
  camera_status now = status_;
  now.missed = missed_.count(nowUs);
  now.isMissedEstimate = missed_.is_estimate();
  now.health = health_.total();
  now.elapsedUs = startUs_ ? nowUs - *startUs_ : 0;
  return now;
}

interval_histogram camera_status_keeper::histogram() const {
  const std::lock_guard lock(mutex_);
  return intervals_;
}

}  // namespace host
