#include "host/check/probe.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/acquire/camera_status.h"
#include "host/acquire/preparation.h"
#include "host/acquire/signals.h"
#include "host/acquire/silent_end.h"
#include "host/acquire/thread_log.h"

namespace host {
namespace {

using namespace Zavik::Support::MediaGrabber;
using std::chrono::milliseconds;

constexpr milliseconds kSignalCheck{20};

grey_histogram histogram_of(const std::uint8_t* data, std::uint32_t count) {
  grey_histogram greys{};
  std::for_each(data, data + count, [&](std::uint8_t grey) { ++greys[grey]; });
  return greys;
}

}  // namespace

probe::probe(const camera_library& library, const bundle_session& bundle, const camera_config& camera)
    : camera_(camera), extension_(library) {
  const camera_log_scope scope(camera.serial);
  preparation_ = prepare_camera(library, camera.serial);
  const table_holder table = make_table(camera);
  take_failures();
  device_ = bundle.create(this, table.get());
  failures_ = take_failures();
}

probe::~probe() {
  if (thread_.joinable()) {
    end();
  }
  if (device_ != nullptr) {
    device_->destroy();
  }
}

void probe::start() {
  isRunning_ = true;
  thread_ = std::thread([this] {
    const camera_log_scope scope(camera_.serial);
    device_->run(this);
    note_failures();
    const std::lock_guard lock(mutex_);
    isRunning_ = false;
    news_.notify_all();
  });
}

template <class Condition>
bool probe::wait_until(milliseconds longest, Condition isMet) {
  const auto deadline = std::chrono::steady_clock::now() + longest;
  while (std::chrono::steady_clock::now() < deadline) {
    {
      std::unique_lock lock(mutex_);
      if (news_.wait_for(lock, kSignalCheck, isMet)) {
        return true;
      }
      if (!isRunning_) {
        return false;
      }
    }
    if (wait_signal(milliseconds(0)) != 0) {
      throw interrupted();
    }
  }
  return false;
}

bool probe::wait_frames(std::size_t count, milliseconds longest, progress_line& progress) {
  const std::size_t first = frames().size();
  return wait_until(longest, [&] {
    progress.show(fmt::format("{}: {} of {} frames", camera_.serial, frames_.size() - first, count - first));
    return frames_.size() >= count;
  });
}

// On the run's thread, whose failures they are.
void probe::note_failures() {
  const std::string fresh = take_failures();
  const std::lock_guard lock(mutex_);
  if (runFailures_.empty()) {
    runFailures_ = fresh;
  }
}

std::string probe::run_failures() const {
  const std::lock_guard lock(mutex_);
  return runFailures_;
}

light_limits probe::limits() const {
  return limits_of(extension_.features(camera_.serial).value_or(std::vector<feature_record>()));
}

std::optional<std::size_t> probe::apply(const light_settings& settings, milliseconds longest) {
  {
    const std::lock_guard lock(mutex_);
    pending_ = settings;
  }
  if (!wait_until(longest, [this] { return !pending_; })) {
    return std::nullopt;
  }
  const std::lock_guard lock(mutex_);
  return appliedAt_;
}

std::chrono::microseconds probe::end() {
  const auto began = std::chrono::steady_clock::now();
  {
    const std::lock_guard lock(mutex_);
    isEndWanted_ = true;
  }
  thread_.join();
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - began);
}

std::vector<seen_frame> probe::frames() const {
  const std::lock_guard lock(mutex_);
  return frames_;
}

std::optional<float> probe::temperature() const {
  const std::lock_guard lock(mutex_);
  return temperatureC_;
}

bool probe::is_running() const {
  const std::lock_guard lock(mutex_);
  return isRunning_;
}

std::int32_t probe::getPendingSignal() {
  const std::lock_guard lock(mutex_);
  isSignalGiven_ = isEndWanted_;
  return isEndWanted_ ? kPENDING_SIGNAL__SIGTERM : kPENDING_SIGNAL__NONE;
}

bool probe::tryPopPendingSweepConf(Zavik::Support::rw_table_like* sweep) {
  const std::lock_guard lock(mutex_);
  if (!pending_) {
    return false;
  }
  write_settings(*pending_, *sweep);
  pending_.reset();
  appliedAt_ = frames_.size();
  news_.notify_all();
  return true;
}

void probe::onFrameTick(float sensorTempC) {
  const std::lock_guard lock(mutex_);
  temperatureC_ = temperature_of(sensorTempC);
}

void probe::onFrame(const cam_frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) {
  seen_frame frame{.arrivalUs = steady_us(), .info = *info, .greys = histogram_of(data, byteCount)};
  frame.mean = mean_grey(frame.greys);
  if (const auto record = extension_.health(camera_.serial)) {
    frame.id = record->frame_id;
    frame.cameraTimeNs = record->frame_time_ns;
  }
  const std::lock_guard lock(mutex_);
  frames_.push_back(frame);
  news_.notify_all();
}

void probe::onNoFrame() {
  note_failures();
  const std::lock_guard lock(mutex_);
  if (isEndWanted_ && !isSignalGiven_) {
    isSignalGiven_ = true;
    expect_failures(true);
    throw silent_end();
  }
}

}  // namespace host
