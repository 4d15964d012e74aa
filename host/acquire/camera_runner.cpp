#include "host/acquire/camera_runner.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <utility>

#include "core/log.h"
#include "host/acquire/advice.h"
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

// All lines but the first, which is the reason.
std::string advice_of(const refusal_reasons& found) {
  std::string advice;
  for (std::size_t at = 1; at < found.lines.size(); ++at) {
    const std::string& line = found.lines[at];
    advice += (advice.empty() ? "" : "; ") + line.substr(std::min(line.find_first_not_of(" -"), line.size()));
  }
  return advice;
}

// Says since when a camera is being opened, for the length of a scope.
class opening_scope {
 public:
  explicit opening_scope(std::atomic<std::uint64_t>& sinceUs) : sinceUs_(sinceUs) { sinceUs_ = steady_us(); }
  ~opening_scope() { sinceUs_ = 0; }
  opening_scope(const opening_scope&) = delete;
  opening_scope& operator=(const opening_scope&) = delete;

 private:
  std::atomic<std::uint64_t>& sinceUs_;
};

std::chrono::milliseconds pause_after(std::uint64_t failuresInRow) {
  const auto doublings = std::min<std::uint64_t>(failuresInRow - 1, 5);
  return std::min(kPauseFirst * (1U << doublings), kPauseLongest);
}

}  // namespace

camera_runner::camera_runner(const camera_config& camera, const std::vector<sweep_config>& sweeps,
                             const run_services& services, camera_slot& slot, const run_limits& limits)
    : camera_(camera),
      services_(services),
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
  const camera_status now = slot_.status.now();
  return now.frames + now.failures > 0;
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
  pthread_setname_np(pthread_self(), "acquisition");
  auto outcome = run_outcome::running;
  while (outcome == run_outcome::running) {
    outcome = is_end_wanted() ? run_outcome::done : run_once();
  }
  outcome_ = outcome;
}

// One device, from its creation to its end, and the pause after a failure. Gives how the runner goes on.
// Memory that runs out costs the device; the pause after it needs none.
run_outcome camera_runner::run_once() {
  try {
    take_failures();
    const bool isDone = run_device() || is_end_wanted();
    return isDone ? run_outcome::running : follow_failure();
  } catch (const std::exception& error) {
    LOG(1, "fail: exception <%s>", error.what());
    const bool isMemory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    slot_.status.run_ended();
    slot_.status.failed(isMemory ? failure_reason::memory : failure_reason::run);
    pause(kPauseFirst);
    return limits_.restart ? run_outcome::running : run_outcome::failed;
  }
}

// What comes after a device that failed.
run_outcome camera_runner::follow_failure() {
  slot_.status.failed(reason_of_failure());
  if (drop_refused_sweep()) {
    return run_outcome::running;
  }
  if (refusal_.isLasting) {
    slot_.status.given_up(refusal_.lines.front(), advice_of(refusal_));
    LOG(1, "the camera is given up: only another configuration, or another camera, can help");
    return run_outcome::givenUp;
  }
  return report_failure() ? run_outcome::running : run_outcome::failed;
}

failure_reason camera_runner::reason_of_failure() const {
  if (!isCreated_) {
    return refusal_.isLasting        ? failure_reason::configuration
           : !refusal_.lines.empty() ? failure_reason::unavailable
                                     : failure_reason::creation;
  }
  return slot_.settings.is_unproven() ? failure_reason::setting
         : silenceAdvice_.empty()     ? failure_reason::run
                                      : failure_reason::silence;
}

// Null when the bundle refuses the camera, or when the end is wanted.
camera_runner::device_like* camera_runner::create_device() {
  const opening_scope opening(openingSinceUs_);
  if (const std::string prepared = prepare_camera(services_.library, slot_.serial); !prepared.empty()) {
    LOG(3, "%s", prepared.c_str());
  }
  if (is_end_wanted()) {
    return nullptr;
  }
  const table_holder table = make_table(camera_);
  device_like* const created = services_.bundle.create(this, table.get());
  if (created == nullptr && !is_end_wanted()) {
    explain_failure();
  }
  return created;
}

// Logs why the camera is refused, and again when the reasons have changed.
void camera_runner::explain_failure() {
  refusal_reasons found = services_.diagnose(camera_);
  if (found.lines != refusal_.lines) {
    for (const std::string& line : found.lines) {
      LOG(1, "%s", line.c_str());
    }
  }
  refusal_ = std::move(found);
}

// True when it ended as the host wanted; false when the device could not be created or its run failed.
bool camera_runner::run_device() {
  silenceAdvice_.clear();
  isCreated_ = false;
  device_like* const created = create_device();
  if (created == nullptr) {
    return is_end_wanted();
  }
  isCreated_ = true;
  refusal_ = {};
  {
    const std::lock_guard lock(deviceMutex_);
    device_ = created;
  }
  const std::unique_ptr<device_like, device_closer> closing(created, device_closer{this});
  LOG(3, "acquisition starts");
  framesOfRun_ = 0;
  lastFrameUs_ = steady_us();
  isSignalGiven_ = false;
  start_figures();
  created->run(this);
  expect_failures(false);
  log_details(false);
  slot_.status.run_ended();
  return isSignalGiven_;
}

void camera_runner::start_figures() {
  const double periodUs = camera_.period_us();
  if (periodUs > 1e6 / camera_.frameRateHz) {
    LOG(2, "exposure_us = %.0f caps the rate at %.4g Hz, below frame_rate_hz = %.4g", periodUs,
        1e6 / periodUs, camera_.frameRateHz);
  }
  slot_.status.run_started(periodUs);
  const auto features = services_.extension.features(slot_.serial).value_or(std::vector<feature_record>());
  slot_.settings.run_started(schedule_.names(), camera_.initial, limits_of(features));
  slot_.manual.run_started(camera_.initial);
}

void camera_runner::close_device() {
  const std::lock_guard lock(deviceMutex_);
  std::exchange(device_, nullptr)->destroy();
}

// Why the last attempt failed.
std::string camera_runner::failure_text() const {
  if (!refusal_.lines.empty()) {
    return refusal_.lines.front();
  }
  return silenceAdvice_.empty() ? take_failures() : camera_silent().what();
}

// What to do about it.
std::string camera_runner::failure_advice() const {
  if (!refusal_.lines.empty()) {
    return advice_of(refusal_);
  }
  return silenceAdvice_.empty() ? kUnexplainedAdvice : silenceAdvice_;
}

// Logs the failure and waits before the next attempt. False when there is to be none.
bool camera_runner::report_failure() {
  const std::uint64_t inRow = slot_.status.now().failuresInRow;
  const std::string reasons = failure_text();
  const std::string advice = failure_advice();
  LOG(1, "the device failed (%lu in a row): %s", inRow, reasons.c_str());
  if (!limits_.restart) {
    return false;
  }
  if (limits_.failuresMax && inRow >= *limits_.failuresMax) {
    LOG(1, "%lu failures in a row are as many as --max-failures allows", inRow);
    return false;
  }
  const auto length = pause_after(inRow);
  slot_.status.pausing(reasons, advice, length);
  LOG(3, "it is created again in %.0f s", std::chrono::duration<double>(length).count());
  pause(length);
  return true;
}

// Ends early when the end is wanted.
void camera_runner::pause(std::chrono::milliseconds length) {
  std::unique_lock lock(endMutex_);
  for (auto waited = kPauseStep; waited <= length && !is_end_wanted(); waited += kPauseStep) {
    slot_.status.alive();
    endWanted_.wait_for(lock, kPauseStep);
  }
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
  queue_due_sweep();
  const auto settings = slot_.settings.take(slot_.handedOver.load() + 1);
  if (!settings) {
    return false;
  }
  take_failures();    // so that those that follow are of these settings
  log_details(true);  // until the next frame: settings may change several times a second
  write_settings(*settings, *sweep);
  return true;
}

void camera_runner::queue_due_sweep() {
  if (slot_.manual.are_sweeps_held()) {
    return;
  }
  const auto step = schedule_.due(steady_us(), framesOfRun_);
  if (!step) {
    return;
  }
  const std::string& name = schedule_.names()[step->index];
  const auto reasons = slot_.settings.add(name, step->settings).reasons;
  if (reasons.empty()) {
    LOG(4, "%s", name.c_str());
    return;
  }
  LOG(2, "%s is refused, and not tried again: %s", name.c_str(), reasons.front().c_str());
  schedule_.drop(step->index);
}

// Whether the camera refused settings and so ended the run. A sweep that did so does not come again.
bool camera_runner::drop_refused_sweep() {
  const auto requester =
      slot_.settings.run_failed("the camera does not take it, although its limits allow it");
  if (!requester) {
    return false;
  }
  slot_.manual.refused(*requester);
  const auto& names = schedule_.names();
  const auto sweep = std::find(names.begin(), names.end(), *requester);
  if (sweep != names.end()) {
    schedule_.drop(static_cast<std::size_t>(sweep - names.begin()));
  }
  LOG(1, "%s was refused by the camera, which ended the device (%s). It is created again without it",
      requester->c_str(), take_failures().c_str());
  return true;
}

void camera_runner::onFrameTick(float sensorTempC) {
  const std::uint64_t nowUs = steady_us();
  lastFrameUs_ = nowUs;
  if (++framesOfRun_ == 1) {
    schedule_.start(nowUs);
  }
  log_details(false);
  read_health();
  slot_.settings.arrived(slot_.status.arrived(nowUs, sensorTempC));
  report_losses(nowUs);
}

void camera_runner::read_health() {
  if (const auto record = services_.extension.health(slot_.serial)) {
    slot_.status.health(*record);
  }
}

void camera_runner::report_losses(std::uint64_t nowUs) {
  const camera_status now = slot_.status.now();
  if (const auto text = losses_.due(nowUs, now.missed, now.health)) {
    LOG(2, "%s", text->c_str());
  }
}

void camera_runner::onFrame(const cam_frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) {
  const std::uint64_t number = slot_.handedOver.fetch_add(1) + 1;
  slot_.status.handed_over(*info);
  slot_.settings.handed_over(*info, number);
  for (frame_taker* taker : slot_.takers) {
    taker->offer(*info, number, {data, byteCount});
  }
}

void camera_runner::onNoFrame() {
  if (isSignalGiven_) {
    return;  // the run ends anyway
  }
  slot_.status.silent();
  slot_.settings.survived();
  read_health();
  report_losses(steady_us());
  if (is_end_wanted()) {
    isSignalGiven_ = true;
    expect_failures(true);
    throw silent_end();
  }
  if (steady_us() - lastFrameUs_ >=
      silence_limit_us(camera_.frameRateHz, static_cast<double>(slot_.settings.exposure_us()))) {
    silenceAdvice_ = no_frames_advice(services_.extension.health(slot_.serial));
    throw camera_silent();
  }
}

}  // namespace host
