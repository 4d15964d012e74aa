#include "host/session.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>
#include <filesystem>
#include <thread>
#include <utility>

#include "core/log.h"
#include "host/acquire/signals.h"
#include "host/check/diagnosis.h"
#include "host/outputs/image_files.h"
#include "host/outputs/video.h"
#include "host/report/metrics.h"
#include "host/report/stats_line.h"
#include "host/report/status_line.h"
#include "host/report/summary.h"
#include "host/web/live/qr_code.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using Zavik::Support::MediaGrabber::kPENDING_SIGNAL__SIGHUP;
using Zavik::Support::MediaGrabber::kPENDING_SIGNAL__SIGTERM;

constexpr auto kTick = 50ms;
constexpr auto kStatusOnTerminal = 500ms;
constexpr auto kStatusElsewhere = 10s;
constexpr auto kStatsEvery = 1s;
constexpr std::uint64_t kOpeningLongestUs = 30'000'000;
constexpr auto kEndTick = 5ms;
constexpr auto kEndPatience = 500ms;  // then a camera that still waits is cancelled
constexpr auto kCancelAgain = 100ms;
constexpr auto kDrainTick = 10ms;
constexpr auto kDrainAfterSignal = 400ms;  // within the second that an end may take

void keep_chosen(config& all, const std::vector<std::string>& chosen) {
  const auto isLeftOut = [&](const camera_config& camera) {
    return std::find(chosen.begin(), chosen.end(), camera.serial) == chosen.end();
  };
  if (!chosen.empty()) {
    std::erase_if(all.cameras, isLeftOut);
  }
}

}  // namespace

config_result load_config(const options& chosen) {
  config_result result = load_config(chosen.configPath);
  if (!result.errors.empty()) {
    return result;
  }
  const std::vector<std::string> serials = result.value.serials();
  for (const std::string& serial : chosen.cameras) {
    if (std::find(serials.begin(), serials.end(), serial) == serials.end()) {
      result.errors.push_back(fmt::format("--camera: {} has no camera '{}', but {}", chosen.configPath,
                                          serial, fmt::join(serials, ", ")));
    }
  }
  keep_chosen(result.value, chosen.cameras);
  if (!chosen.y4mPath.empty() && result.errors.empty() && result.value.cameras.size() != 1) {
    result.errors.push_back(
        fmt::format("--y4m: video is of one camera, and {} has {}: choose one with --camera",
                    chosen.configPath, result.value.cameras.size()));
  }
  return result;
}

camera_outputs::camera_outputs(const camera_config& camera, const options& chosen) : slot(camera.serial) {
  if (!chosen.recordDirectory.empty()) {
    const std::filesystem::path folder =
        std::filesystem::path(chosen.recordDirectory) / file_name_of(camera.serial);
    files = std::make_unique<frame_writer>(camera.serial,
                                           std::make_unique<image_files>(folder, chosen.format, chosen.keep),
                                           camera.frame_bytes(), chosen.every);
    slot.takers.push_back(files.get());
  }
  if (!chosen.y4mPath.empty()) {
    video = std::make_unique<frame_writer>(
        camera.serial, std::make_unique<y4m_stream>(chosen.y4mPath, camera.frameRateHz, chosen.isOverwriting),
        camera.frame_bytes(), 1);
    slot.takers.push_back(video.get());
  }
  if (chosen.live) {
    preview = std::make_shared<preview_source>([this] { return slot.status.missed(); });
    slot.takers.push_back(preview.get());
  }
}

session::session(const options& chosen, config configuration, const camera_library& library,
                 const bundle_session& bundle, standard_error& error, const log_tail& log)
    : options_(chosen),
      config_(std::move(configuration)),
      extension_(library),
      services_{library, extension_, bundle,
                [&library, isSimulated = chosen.libraries.is_simulated()](const camera_config& camera) {
                  return diagnose(library, camera, isSimulated);
                }},
      error_(error),
      log_(log) {
  for (const camera_config& camera : config_.cameras) {
    slot_for(camera);
  }
  if (!options_.statsPath.empty()) {
    stats_.emplace(options_.statsPath);
  }
  if (options_.metrics) {
    serve();
  }
  if (options_.live) {
    serve_live_page();
  }
}

session::~session() = default;

void session::serve() {
  web_ = std::make_unique<web_server>(
      *options_.metrics, std::vector<web_route>{{"GET", "/metrics", [this](const web_request&) {
                                                   return web_answer{.type = "text/plain; version=0.0.4",
                                                                     .body = metrics_text(snapshots())};
                                                 }}});
  LOG(3, "metrics are served at http://%s:%d/metrics", options_.metrics->address.c_str(), web_->port());
}

void session::serve_live_page() {
  live_ = std::make_unique<live_page>(
      *options_.live, live_session{.visitCameras = [this](const auto& visit) { visit_cameras(visit); },
                                   .metrics = [this] { return metrics_text(snapshots()); },
                                   .log = log_,
                                   .configName = options_.configPath});
  // Not into the log: the link is a secret, and the log is on the page.
  error_.print("live page: " + live_->link());
  if (error_.is_terminal()) {
    error_.print(qr_code(live_->link()));
  }
}

void session::visit_cameras(const std::function<void(const live_source&)>& visit) const {
  const std::lock_guard lock(camerasMutex_);
  for (const auto& each : cameras_) {
    visit({each->slot, each->preview, each->files.get(), each->video.get()});
  }
}

std::vector<camera_snapshot> session::snapshots() const {
  const std::lock_guard lock(camerasMutex_);
  std::vector<camera_snapshot> all;
  std::transform(cameras_.begin(), cameras_.end(), std::back_inserter(all), [](const auto& each) {
    return snapshot_of(each->slot, each->files.get(), each->video.get());
  });
  return all;
}

// The slot of a camera stays when its device is made anew; a camera that is new in the configuration gets
// one.
camera_slot& session::slot_for(const camera_config& camera) {
  const auto found = std::find_if(cameras_.begin(), cameras_.end(),
                                  [&](const auto& each) { return each->slot.serial == camera.serial; });
  if (found != cameras_.end()) {
    return (*found)->slot;
  }
  auto fresh = std::make_unique<camera_outputs>(camera, options_);
  const std::lock_guard lock(camerasMutex_);
  return cameras_.emplace_back(std::move(fresh))->slot;
}

// Starts the cameras that have no runner yet: all of them, or those for which there was no memory.
void session::start_cameras() {
  if (runners_.empty()) {
    extension_.prefer(config_.serials());
  }
  const run_limits limits{
      .frames = options_.frames, .restart = options_.restart, .failuresMax = options_.maxFailures};
  while (runners_.size() < config_.cameras.size()) {
    const camera_config& camera = config_.cameras[runners_.size()];
    runners_.push_back(std::make_unique<camera_runner>(camera, config_.sweeps_of(camera.serial), services_,
                                                       slot_for(camera), limits));
  }
}

void session::end_cameras(std::int32_t signal) {
  for (const auto& runner : runners_) {
    runner->request_end(signal);
  }
  // A camera that hangs in one call may hang in the next one.
  for (auto patience = kEndPatience; !wait_for_runners(patience); patience = kCancelAgain) {
    cancel_waiting();
    if (!extension_.is_there()) {
      break;
    }
  }
  runners_.clear();
}

void session::cancel_waiting() {
  for (const auto& runner : runners_) {
    if (runner->outcome() == run_outcome::running) {
      LOG(3, "camera %s does not end by itself and is cancelled", runner->serial().c_str());
      extension_.cancel(runner->serial());
    }
  }
}

// Whether all ended within that time; a signal ends the waiting.
bool session::wait_for_runners(std::chrono::milliseconds longest) {
  const auto deadline = clock::now() + longest;
  const auto hasEnded = [](const auto& runner) { return runner->outcome() != run_outcome::running; };
  bool haveEnded = false;
  bool isHurried = false;
  while (!(haveEnded = std::all_of(runners_.begin(), runners_.end(), hasEnded)) && !isHurried &&
         clock::now() < deadline) {
    const int signal = wait_signal(kEndTick);
    isHurried = signal != 0 && signal != SIGHUP;
    isInterrupted_ = isInterrupted_ || isHurried;  // also one that comes during a reload
  }
  return haveEnded;
}

// Opens what cameras that are new in it need. False, and nothing is changed, when that fails.
bool session::open_outputs(const config& fresh) {
  const std::size_t before = cameras_.size();
  try {
    for (const camera_config& camera : fresh.cameras) {
      slot_for(camera);
    }
    return true;
  } catch (const output_error& error) {
    LOG(1, "fail: %s", error.what());
    const std::lock_guard lock(camerasMutex_);
    cameras_.resize(before);
    return false;
  }
}

// Cameras that are not configured any more leave status and metrics, once all of their frames are written.
void session::forget_cameras() {
  const std::vector<std::string> serials = config_.serials();
  std::vector<std::unique_ptr<camera_outputs>> leaving;
  {
    const std::lock_guard lock(camerasMutex_);
    const auto gone = std::stable_partition(cameras_.begin(), cameras_.end(), [&](const auto& each) {
      return std::find(serials.begin(), serials.end(), each->slot.serial) != serials.end();
    });
    std::move(gone, cameras_.end(), std::back_inserter(leaving));
    cameras_.erase(gone, cameras_.end());
  }
  for (const auto& each : leaving) {
    meters_.erase(each->slot.serial);
    activity_.erase(each->slot.serial);
  }
  finish_outputs(leaving, true);
  print_summary(leaving);
}

void session::reload() {
  LOG(3, "SIGHUP: %s is read again", options_.configPath.c_str());
  service_notifier::reloading();
  config_result fresh = load_config(options_);
  const bool isOtherVideo =
      fresh.errors.empty() && !options_.y4mPath.empty() && fresh.value.serials() != config_.serials();
  if (isOtherVideo) {
    fresh.errors.push_back(fmt::format("--y4m: the video in {} is of camera '{}'; start again for another",
                                       options_.y4mPath, config_.cameras.front().serial));
  }
  for (const std::string& error : fresh.errors) {
    LOG(1, "%s", error.c_str());
  }
  for (const std::string& warning : fresh.warnings) {
    LOG(2, "%s", warning.c_str());
  }
  if (fresh.errors.empty() && open_outputs(fresh.value)) {
    end_cameras(kPENDING_SIGNAL__SIGHUP);
    config_ = std::move(fresh.value);
    forget_cameras();
    start_cameras();
  } else {
    LOG(2, "the configuration that runs stays in place");
  }
  if (stats_) {
    stats_->reopen();
  }
  service_notifier::reloaded();
}

bool session::is_over() {
  if (options_.seconds && std::chrono::duration<double>(clock::now() - start_).count() >= *options_.seconds) {
    return true;
  }
  const auto has = [this](run_outcome outcome) {
    return std::any_of(runners_.begin(), runners_.end(),
                       [=](const auto& runner) { return runner->outcome() == outcome; });
  };
  hasFailed_ = hasFailed_ || has(run_outcome::failed);
  hasGivenUp_ = has(run_outcome::givenUp);
  // A service waits for another configuration.
  const bool areRunning = has(run_outcome::running) || runners_.size() < config_.cameras.size();
  return hasFailed_ || is_video_over() || (!areRunning && !(hasGivenUp_ && service_notifier::is_service()));
}

// Whether the video was all that was wanted, and it has ended.
bool session::is_video_over() const {
  const bool isAll =
      options_.recordDirectory.empty() && options_.statsPath.empty() && !options_.metrics && !options_.live;
  return isAll && std::any_of(cameras_.begin(), cameras_.end(),
                              [](const auto& each) { return each->video && each->video->is_over(); });
}

int session::run() {
  start_cameras();
  bool isReported = false;
  while (!is_over() && !isInterrupted_) {
    const int signal = wait_signal(kTick);
    try {
      handle(signal);
      isReported = false;
    } catch (const std::exception& error) {  // no memory, or no thread
      if (!std::exchange(isReported, true)) {
        LOG(1, "fail: exception <%s>. What could not be done is tried again; acquisition goes on",
            error.what());
      }
    }
  }
  service_notifier::stopping();
  write_stats();
  end_cameras(kPENDING_SIGNAL__SIGTERM);
  finish_outputs(cameras_, isInterrupted_);
  print_summary(cameras_);
  return is_failure() ? 1 : 0;
}

void session::handle(int signal) {
  if (signal == SIGHUP) {
    reload();
  } else if (signal != 0) {
    LOG(3, "SIG%s: the end", sigabbrev_np(signal));
    isInterrupted_ = true;
  } else {
    start_cameras();
    look_after();
  }
}

// No frame of some camera, fewer than were asked for, or frames that are not in the recording.
bool session::is_failure() const {
  const auto fallsShort = [this](const std::unique_ptr<camera_outputs>& each) {
    const std::uint64_t handedOver = each->slot.handedOver.load();
    return handedOver == 0 || (options_.frames && !isInterrupted_ && handedOver < *options_.frames) ||
           (each->files && each->files->totals().dropped > 0);
  };
  return hasFailed_ || hasGivenUp_ || std::any_of(cameras_.begin(), cameras_.end(), fallsShort);
}

void session::look_after() {
  const auto now = clock::now();
  if (have_cameras_begun()) {
    service_.ready();
  }
  if ((web_ && !web_->is_serving()) || (live_ && !live_->is_serving())) {
    serve_again();
  }
  service_.watchdog(steady_us(), [this] { return are_cameras_alive(); });
  if (now >= nextStatus_) {
    nextStatus_ =
        now + (error_.is_terminal() ? std::chrono::milliseconds(kStatusOnTerminal) : kStatusElsewhere);
    show_status();
  }
  if (now >= nextStats_) {
    nextStats_ = now + kStatsEvery;
    cancel_long_openings();
    write_stats();
  }
}

void session::serve_again() {
  try {
    if (web_ && !web_->is_serving()) {
      web_.reset();
      serve();
    }
    if (live_ && !live_->is_serving()) {
      live_.reset();
      serve_live_page();
    }
  } catch (const std::runtime_error& error) {
    LOG(1, "fail: %s. Nothing is served any more", error.what());
  }
}

void session::show_status() {
  std::vector<std::string> lines;
  double framesPerSecond = 0;
  std::uint64_t missed = 0;
  std::string givenUp;
  for (const camera_snapshot& each : snapshots()) {
    const rate_meter::rates rates = meters_[each.serial].update(each);
    framesPerSecond += rates.framesPerSecond;
    missed += each.status.missed;
    if (!each.status.givenUp.empty()) {
      givenUp += fmt::format("; {} given up: {}", each.serial, each.status.givenUp);
    }
    lines.push_back(status_line(each, rates));
  }
  service_notifier::status(fmt::format("{} cameras, {:.1f} frames/s, {} missed{}", lines.size(),
                                       framesPerSecond, missed, givenUp));
  if (options_.isQuiet) {
    return;
  }
  if (error_.is_terminal()) {
    error_.set_status(std::move(lines));
    return;
  }
  for (const std::string& line : lines) {
    LOG(3, "%s", line.c_str());
  }
}

void session::write_stats() {
  if (!stats_) {
    return;
  }
  try {
    for (const camera_snapshot& each : snapshots()) {
      const auto runner = std::find_if(runners_.begin(), runners_.end(),
                                       [&](const auto& one) { return one->serial() == each.serial; });
      const std::string bundleStats = runner == runners_.end() ? "" : (*runner)->device_stats();
      stats_->write(stats_line(each, meters_[each.serial].update(each), bundleStats));
    }
    isStatsBroken_ = false;
  } catch (const output_error& error) {
    if (!std::exchange(isStatsBroken_, true)) {
      LOG(1, "fail: %s. Statistics are missing until that is over", error.what());
    }
  }
}

bool session::have_cameras_begun() const {
  return std::all_of(runners_.begin(), runners_.end(),
                     [](const auto& runner) { return runner->has_begun(); });
}

void session::cancel_long_openings() {
  for (const auto& runner : runners_) {
    const std::uint64_t since = runner->opening_since();
    if (since != 0 && steady_us() - since > kOpeningLongestUs) {
      LOG(1, "fail: camera %s hangs while it is opened and is cancelled", runner->serial().c_str());
      extension_.cancel(runner->serial());
    }
  }
}

// Whether any camera's thread did something since the last call, or has nothing to do. One that hangs must
// not take the others with it; when all hang, only a new start of the program helps.
bool session::are_cameras_alive() {
  std::size_t hanging = 0;
  for (const auto& runner : runners_) {
    const std::uint64_t now = runner->activity();
    last_activity& last = activity_[runner->serial()];
    const bool isHanging =
        now == last.count && runner->outcome() == run_outcome::running && runner->opening_since() == 0;
    if (isHanging && !last.isHanging) {
      LOG(1, "fail: camera %s hangs in a call of the camera library or the bundle", runner->serial().c_str());
    }
    last = {now, isHanging};
    hanging += isHanging ? 1 : 0;
  }
  return runners_.empty() || hanging < runners_.size();
}

void session::finish_outputs(const std::vector<std::unique_ptr<camera_outputs>>& cameras,
                             bool isInterrupted) {
  const auto deadline = clock::now() + kDrainAfterSignal;
  const auto isIdle = [](const auto& each) {
    return (!each->files || each->files->is_idle()) && (!each->video || each->video->is_idle());
  };
  while (!std::all_of(cameras.begin(), cameras.end(), isIdle) &&
         !(isInterrupted && clock::now() >= deadline)) {
    if (isInterrupted) {
      std::this_thread::sleep_for(kDrainTick);  // a signal is left for whoever waits for the next one
    } else {
      isInterrupted = wait_signal(kDrainTick) != 0;
    }
  }
  for (const auto& each : cameras) {
    for (frame_writer* writer : {each->files.get(), each->video.get()}) {
      if (writer != nullptr) {
        writer->stop();
      }
    }
  }
}

void session::print_summary(const std::vector<std::unique_ptr<camera_outputs>>& cameras) {
  error_.set_status({});
  if (options_.isQuiet) {
    return;
  }
  for (const auto& each : cameras) {
    error_.print(summary(snapshot_of(each->slot, each->files.get(), each->video.get()),
                         each->slot.settings.outcomes()));
  }
}

}  // namespace host
