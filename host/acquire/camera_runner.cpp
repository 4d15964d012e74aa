#include "host/acquire/camera_runner.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "core/log.h"
#include "host/acquire/preparation.h"
#include "host/acquire/silent_end.h"
#include "host/acquire/thread_log.h"

namespace host {
namespace {

using namespace Zavik::Support::MediaGrabber;

constexpr std::chrono::milliseconds kPauseFirst{1000};
constexpr std::chrono::milliseconds kPauseLongest{30'000};
constexpr std::chrono::milliseconds kPauseStep{250};  // shows that the thread is alive

// A camera may be silent for this long, and for this many of its frames, before its device is given up.
constexpr double kSilenceLongestS = 3;
constexpr double kSilenceLongestFrames = 10;

std::uint64_t silence_limit_us(double frameRateHz, double exposureUs) {
  const double frameUs = std::max(1e6 / frameRateHz, exposureUs);
  return static_cast<std::uint64_t>(std::max(kSilenceLongestS * 1e6, kSilenceLongestFrames * frameUs));
}

std::chrono::milliseconds pause_after(std::uint64_t failuresInRow) {
  const auto doublings = std::min<std::uint64_t>(failuresInRow - 1, 5);
  return std::min(kPauseFirst * (1U << doublings), kPauseLongest);
}

}  // namespace

camera_runner::camera_runner(const camera_config& camera, const std::vector<sweep_config>& sweeps,
                             const camera_library& library, const bundle_session& bundle, camera_slot& slot,
                             const run_limits& limits)
    : camera_(camera),
      library_(library),
      bundle_(bundle),
      slot_(slot),
      limits_(limits),
      schedule_(camera, sweeps),
      thread_([this] { work(); }) {}

camera_runner::~camera_runner() {
  request_end(kPENDING_SIGNAL__SIGTERM);
  thread_.join();
}

void camera_runner::request_end(std::int32_t signal) {
  {
    const std::lock_guard lock(endMutex_);
    std::int32_t none = kPENDING_SIGNAL__NONE;
    endSignal_.compare_exchange_strong(none, signal);
  }
  endWanted_.notify_one();
}

bool camera_runner::is_end_wanted() const {
  return endSignal_.load() != kPENDING_SIGNAL__NONE ||
         (limits_.frames && slot_.handedOver.load() >= *limits_.frames);
}

bool camera_runner::has_begun() const {
  const camera_totals totals = slot_.monitor.totals();
  return totals.frames + totals.failures > 0;
}

std::string camera_runner::device_stats() {
  const std::lock_guard lock(deviceMutex_);
  std::string text;
  if (device_ != nullptr) {
    device_->collectStats([](void* context, const char* json) { *static_cast<std::string*>(context) = json; },
                          &text);
  }
  return text;
}

void camera_runner::work() {
  const camera_log_scope scope(slot_.serial);
  while (!is_end_wanted()) {
    take_failures();
    if (run_device() || is_end_wanted()) {
      continue;
    }
    slot_.monitor.failed();
    if (!pause_after_failure()) {
      outcome_ = run_outcome::failed;
      return;
    }
  }
  outcome_ = run_outcome::done;
}

// True when it ended as it was asked to; false when the device could not be created or its run failed.
bool camera_runner::run_device() {
  if (const std::string prepared = prepare_camera(library_, slot_.serial); !prepared.empty()) {
    LOG(3, "%s", prepared.c_str());
  }
  if (is_end_wanted()) {
    return true;
  }
  const table_holder table = make_table(camera_);
  device_like* const created = bundle_.create(this, table.get());
  if (created == nullptr) {
    return false;
  }
  {
    const std::lock_guard lock(deviceMutex_);
    device_ = created;
  }
  const std::unique_ptr<device_like, device_closer> closing(created, device_closer{this});
  LOG(3, "acquisition starts");
  framesOfRun_ = 0;
  lastFrameUs_ = steady_us();
  exposureUs_ = camera_.initial.exposureUs.value_or(0);
  isSignalGiven_ = false;
  slot_.monitor.run_started(schedule_.names(), 1e6 / camera_.frameRateHz);
  created->run(this);
  expect_failures(false);
  slot_.monitor.run_ended();
  return isSignalGiven_;
}

void camera_runner::close_device() {
  const std::lock_guard lock(deviceMutex_);
  std::exchange(device_, nullptr)->destroy();
}

// Reports the failure and waits before the next attempt. False when there is to be none.
bool camera_runner::pause_after_failure() {
  const std::uint64_t inRow = slot_.monitor.totals().failuresInRow;
  const std::string reasons = take_failures();
  LOG(1, "the device failed (%lu in a row): %s", inRow, reasons.c_str());
  if (!limits_.restart) {
    return false;
  }
  if (limits_.failuresMax && inRow >= *limits_.failuresMax) {
    LOG(1, "%lu failures in a row are as many as --max-failures allows", inRow);
    return false;
  }
  const auto pause = pause_after(inRow);
  LOG(3, "it is created again in %.0f s", std::chrono::duration<double>(pause).count());
  std::unique_lock lock(endMutex_);
  for (auto waited = kPauseStep; waited <= pause && !is_end_wanted(); waited += kPauseStep) {
    slot_.monitor.alive();
    endWanted_.wait_for(lock, kPauseStep);
  }
  return true;
}

std::int32_t camera_runner::getPendingSignal() {
  std::int32_t signal = endSignal_.load();
  if (signal == kPENDING_SIGNAL__NONE && is_end_wanted()) {
    signal = kPENDING_SIGNAL__SIGTERM;
  }
  isSignalGiven_ = signal != kPENDING_SIGNAL__NONE;
  return signal;
}

bool camera_runner::tryPopPendingSweepConf(Zavik::Support::rw_table_like* sweep) {
  const auto step = schedule_.due(steady_us(), framesOfRun_);
  if (!step) {
    return false;
  }
  LOG(3, "%s", schedule_.names()[step->index].c_str());
  write_settings(step->settings, *sweep);
  exposureUs_ = step->settings.exposureUs.value_or(exposureUs_);
  slot_.monitor.sweep_applied(*step);
  return true;
}

void camera_runner::onFrameTick(float sensorTempC) {
  const std::uint64_t nowUs = steady_us();
  lastFrameUs_ = nowUs;
  if (++framesOfRun_ == 1) {
    schedule_.start(nowUs);
  }
  slot_.monitor.arrived(nowUs, sensorTempC);
}

void camera_runner::onFrame(const cam_frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) {
  const std::uint64_t number = slot_.handedOver.fetch_add(1) + 1;
  slot_.monitor.handed_over(*info);
  for (frame_taker* taker : slot_.takers) {
    taker->offer(*info, number, {data, byteCount});
  }
}

void camera_runner::onNoFrame() {
  if (isSignalGiven_) {
    return;  // the run ends anyway
  }
  slot_.monitor.silent();
  if (is_end_wanted()) {
    isSignalGiven_ = true;
    expect_failures(true);
    throw silent_end();
  }
  if (steady_us() - lastFrameUs_ >= silence_limit_us(camera_.frameRateHz, exposureUs_)) {
    throw camera_silent();
  }
}

}  // namespace host
