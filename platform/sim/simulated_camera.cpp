#include "platform/sim/simulated_camera.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

#include "platform/gev/exceptions.h"
#include "platform/gev/stream_options.h"
#include "platform/sim/clock.h"
#include "platform/sim/interception.h"
#include "platform/sim/sim.h"

namespace sim {
namespace {

constexpr double slowestHz = 1e-3;  // a test can force the frame rate to 0
constexpr std::uint64_t usPerMs = 1000;

template <std::size_t size>
void copy_text(char (&to)[size], const std::string& from) {
  std::memcpy(to, from.c_str(), std::min(from.size() + 1, size));
}

std::string journal_line(const gev::feature_access& what, const std::string& point) {
  if (what.what == gev::operation::write) {
    return point + "=" + gev::to_text(*what.written) + (what.verify ? "" : " (unverified)");
  }
  return point + (what.verify ? " (verified)" : "") + (what.ignoreCache ? " (uncached)" : "");
}

}  // namespace

simulated_camera::simulated_camera(camera_description description)
    : description_(std::move(description)),
      thermometer_(clock_us()),
      features_(description_, *this),
      nodes_(*this),
      reference_(&nodes_),
      options_(gev::default_options()) {
  features_.for_each_present([this](simulated_feature& each) { nodes_.add(each); });
  if (description_.scene != "default") {
    scene_.emplace(description_.scene, static_cast<std::size_t>(description_.width),
                   static_cast<std::size_t>(description_.height));
  }
}

GEV_DEVICE_INTERFACE simulated_camera::record() const {
  GEV_DEVICE_INTERFACE found{};
  copy_text(found.manufacturer, gev::to_text(find_row("DeviceVendorName")->powerUp));
  copy_text(found.model, description_.model);
  copy_text(found.serial, description_.serial);
  copy_text(found.version, description_.version);
  copy_text(found.username, description_.user);
  found.ipAddr = description_.address;
  found.macHigh = 0x0200;  // a locally administered address
  found.macLow = static_cast<std::uint32_t>(std::hash<std::string>()(description_.serial));
  return found;
}

bool simulated_camera::answers_to(const GEV_DEVICE_INTERFACE& record) const {
  return record.ipAddr == description_.address && description_.serial == text_of(record.serial);
}

// ---- Opening and options

GEV_STATUS simulated_camera::open(GevAccessMode mode) {
  const std::scoped_lock lock(mutex_);
  if (opened_) {
    return GEVLIB_ERROR_ACCESS_DENIED;
  }
  opened_ = mode;
  isCancelled_ = false;
  health_ = {};
  return GEVLIB_OK;
}

void simulated_camera::close() {
  const std::scoped_lock lock(mutex_);
  stop();
  before_change();
  transfer_.reset();
  opened_.reset();
  if (!description_.keepOnClose) {
    features_.power_up();
    options_ = gev::default_options();
  }
}

GEV_STATUS simulated_camera::read_options(GEV_CAMERA_OPTIONS* to) {
  const std::scoped_lock lock(mutex_);
  return gev::read_options(options_, to);
}

GEV_STATUS simulated_camera::write_options(const GEV_CAMERA_OPTIONS* wanted) {
  const std::scoped_lock lock(mutex_);
  return gev::replace_options(options_, wanted);
}

// ---- Features

std::unique_lock<std::mutex> simulated_camera::enter(const gev::feature_access& what) {
  const effect fault = intercept([&] {
    const std::string point = gev::name_of(what);
    return event{point, journal_line(what, point), serial()};
  });
  raise_effect(fault);
  std::unique_lock lock(mutex_);
  if (!opened_) {
    gev::raise<GenICam::LogicalErrorException>(*what.feature + ": the camera " + serial() +
                                               " is closed, its nodes end with GevCloseCamera");
  }
  if (isCancelled_) {
    gev::raise<GenICam::TimeoutException>(*what.feature + ": the camera " + serial() + " was cancelled");
  }
  return lock;
}

const char* simulated_camera::write_obstacle(bool isLocked) {
  if (opened_ == GevMonitorMode) {
    return "the camera is open for monitoring only";
  }
  return isLocked && is_transferring() ? "locked while frames are transferred" : nullptr;
}

// Frames that are due by now are exposed, and the temperature until now is worked out, with the old settings.
void simulated_camera::before_change() {
  const std::uint64_t now = clock_us();
  catch_up(now);
  thermometer_.after(now, frames_per_second());
  areSettingsStale_ = true;
}

double simulated_camera::measure(std::size_t place) {
  const double inside = thermometer_.after(clock_us(), frames_per_second());
  return place == 0 ? inside : inside + picture::thermometer::mainboardAbove;
}

double simulated_camera::frames_per_second() {
  if (!is_transferring()) {
    return 0;
  }
  refresh_settings();
  return 1e6 / intervalUs_;
}

std::string simulated_camera::feature_text(const std::string& name, const std::string& selected) {
  const std::scoped_lock lock(mutex_);
  return features_.at(name).text(selected);
}

void simulated_camera::force_feature(const std::string& name, const std::string& text) {
  const std::scoped_lock lock(mutex_);
  features_.at(name).force(text);
}

void simulated_camera::alter_feature(const std::string& name, const std::string& property,
                                     const std::string& text) {
  const std::scoped_lock lock(mutex_);
  if (const auto dot = name.find('.'); dot != std::string::npos) {
    features_.at(name.substr(0, dot)).alter_entry(name.substr(dot + 1), property, text);
    return;
  }
  simulated_feature& feature = features_.at(name);
  const auto before = feature.kind();
  feature.alter(property, text);
  if (feature.kind() != before && features_.present(name) != nullptr) {
    nodes_.add(feature);
  }
}

picture::output_line simulated_camera::output_line(const char* line) {
  return {.followsExposure = features_.at("outputLineSource").text(line) == "ExposureActive",
          .isInverted = features_.at("LineInverter").number(line) != 0,
          .pulseDelayUs = features_.at("outputLinePulseDelay").number(line),
          .pulseDurationUs = features_.at("outputLinePulseDuration").number(line)};
}

void simulated_camera::refresh_settings() {
  if (!areSettingsStale_) {
    return;
  }
  areSettingsStale_ = false;
  read_light();
  if (!is_transferring()) {  // the buffers of a transfer have the size of its window
    read_window();
  }
  read_times();
}

// Tests can force values beyond the limits, so that light and window are clamped.
void simulated_camera::read_light() {
  const auto number = [this](const char* name) { return features_.at(name).number(); };
  settings_.noise = description_.noise;
  settings_.exposureUs = std::max(number("ExposureTime"), 0.0);
  settings_.gain = features_.at("Gain").number("SensorAll") * features_.at("Gain").number("DigitalAll");
  const double exposureUs = number("ExposureTime");
  settings_.infraredUs = {picture::lit_us(output_line("Line3"), exposureUs),
                          picture::lit_us(output_line("Line4"), exposureUs)};
  settings_.tone = number("lutMode") == 0                                ? picture::tone_curve::linear
                   : features_.at("lutType").text() == "GammaCorrection" ? picture::tone_curve::gamma
                                                                         : picture::tone_curve::negative;
  settings_.gamma = number("gammaCorrection");
  settings_.reverseX = number("ReverseX") != 0;
  settings_.reverseY = number("ReverseY") != 0;
}

void simulated_camera::read_window() {
  const auto side = [this](const char* name, std::int64_t min, std::int64_t max) {
    const std::int64_t wanted = std::llround(features_.at(name).number());
    return static_cast<std::size_t>(std::clamp(wanted, min, max));
  };
  settings_.width = side("Width", 1, description_.width);
  settings_.height = side("Height", 1, description_.height);
  settings_.offsetX = side("OffsetX", 0, description_.width - static_cast<std::int64_t>(settings_.width));
  settings_.offsetY = side("OffsetY", 0, description_.height - static_cast<std::int64_t>(settings_.height));
  pixelFormat_ = static_cast<std::uint32_t>(features_.at("PixelFormat").number());
}

void simulated_camera::read_times() {
  const auto number = [this](const char* name) { return features_.at(name).number(); };
  intervalUs_ = std::max(1e6 / std::max(number("AcquisitionFrameRate"), slowestHz), settings_.exposureUs);
  const double ticksPerSecond = number("GevTimestampTickFrequency");
  ticksPerUs_ = (ticksPerSecond > 0 ? ticksPerSecond : 1e9) * 1e-6;
}

// ---- Transfer

std::size_t simulated_camera::payload() const {
  return settings_.width * settings_.height * (pixelFormat_ == picture::pixelFormatMono10 ? 2 : 1);
}

GEV_STATUS simulated_camera::start(std::uint32_t numFrames) {
  const std::scoped_lock lock(mutex_);
  if (isCancelled_) {
    return GEVLIB_ERROR_DEVICE_LOST;
  }
  if (is_transferring()) {
    return GEVLIB_ERROR_TRANSFER_ACTIVE;
  }
  if (numFrames == 0) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  before_change();
  refresh_settings();
  const std::size_t count = options_.streamNumFramesBuffered;
  if (count * payload() > options_.streamMemoryLimitMax) {
    return GEVLIB_ERROR_NO_MEMORY;
  }
  // Buffers that were not freed after an abort are used again; the consumer's frames stay valid.
  const bool isReused = transfer_ && transfer_->ring.fits(count, payload());
  frame_ring ring = isReused ? std::move(transfer_->ring) : frame_ring(count, payload());
  ring.start_over();
  transfer_.emplace(transfer{.ring = std::move(ring),
                             .framesLeft = numFrames == UINT32_MAX ? UINT64_MAX : numFrames,
                             .nextStartUs = static_cast<double>(clock_us())});
  lost_ = 0;
  return GEVLIB_OK;
}

void simulated_camera::stop() {
  if (is_transferring()) {
    before_change();
    transfer_->isRunning = false;
    transfer_->ring.drop_queued();
  }
  ++stops_;
  wake_.notify_all();
}

GEV_STATUS simulated_camera::abort() {
  const std::scoped_lock lock(mutex_);
  if (!is_transferring()) {
    return GEVLIB_ERROR_TRANSFER_NOT_ACTIVE;
  }
  stop();
  return GEVLIB_OK;
}

GEV_STATUS simulated_camera::free() {
  const std::scoped_lock lock(mutex_);
  if (!transfer_) {
    return GEVLIB_ERROR_TRANSFER_NOT_ACTIVE;
  }
  if (is_transferring()) {
    return GEVLIB_ERROR_TRANSFER_ACTIVE;
  }
  transfer_.reset();
  return GEVLIB_OK;
}

// ---- Frames

void simulated_camera::catch_up(std::uint64_t nowUs) {
  if (description_.freePacing || !exposes()) {
    return;
  }
  refresh_settings();
  const auto now = static_cast<double>(nowUs);
  // A test may have put the clock back.
  transfer_->nextStartUs = std::min(transfer_->nextStartUs, now + intervalUs_);
  while (exposes() && transfer_->nextStartUs + settings_.exposureUs <= now) {
    expose(transfer_->nextStartUs);
    transfer_->nextStartUs += intervalUs_;
  }
}

// A frame for a wait that finds none, of a camera that is not paced by the clock. After a frame that a fault
// took away the next one comes an interval later.
void simulated_camera::expose_for_wait(std::uint64_t nowUs) {
  if (!description_.freePacing || !exposes() || !transfer_->ring.has_free()) {
    return;
  }
  refresh_settings();
  const auto now = static_cast<double>(nowUs);
  transfer_->nextStartUs = std::min(transfer_->nextStartUs, now + intervalUs_);
  if (transfer_->nextStartUs > now) {
    return;
  }
  expose(now);
  transfer_->nextStartUs = transfer_->ring.has_queued() ? now : now + intervalUs_;
}

void simulated_camera::expose(double startUs) {
  ++transfer_->lastId;
  --transfer_->framesLeft;
  const effect fault = intercept([this] { return event{"frame", "", serial()}; });
  if (fault.kind == effect_kind::lost || fault.kind == effect_kind::silent) {
    transfer_->isSilent = fault.kind == effect_kind::silent;
    health_.frames_missing += transfer_->isSilent ? 0 : 1;
    return;
  }
  if (!transfer_->ring.has_free()) {
    ++lost_;
    ++health_.frames_dropped;
    return;
  }
  frame_ring::buffer& buffer = transfer_->ring.queue();
  fill(buffer, startUs);
  if (fault.kind == effect_kind::empty) {
    buffer.frame.address = nullptr;
  } else if (fault.kind == effect_kind::bad) {
    buffer.frame.status = static_cast<std::int32_t>(fault.number);
  }
  ++(buffer.frame.status == 0 ? health_.frames_whole : health_.frames_incomplete);
}

void simulated_camera::fill(frame_ring::buffer& buffer, double startUs) {
  buffer.picture = settings_;
  buffer.picture.timeUs = static_cast<std::uint64_t>(startUs);
  buffer.picture.noiseSeed = transfer_->lastId;
  const auto ticks = static_cast<std::uint64_t>(std::floor(startUs) * ticksPerUs_);
  GEV_BUFFER_OBJECT& frame = buffer.frame;
  frame = {};
  if (description_.timestamps != timestamp_style::none) {
    frame.timestamp_hi = static_cast<std::uint32_t>(ticks >> 32);
    frame.timestamp_lo = static_cast<std::uint32_t>(ticks);
  }
  frame.timestamp = description_.timestamps == timestamp_style::full ? ticks : 0;
  frame.id = transfer_->lastId;
  frame.recv_size = static_cast<std::uint32_t>(payload());
  frame.h = static_cast<std::uint32_t>(settings_.height);
  frame.w = static_cast<std::uint32_t>(settings_.width);
  frame.d = pixelFormat_ == picture::pixelFormatMono10 ? 2 : 1;
  frame.format = pixelFormat_;
  frame.address = buffer.pixels.get();
}

// A frame is drawn when it is delivered, so that a dropped one costs nothing.
GEV_BUFFER_OBJECT* simulated_camera::deliver() {
  frame_ring::buffer& buffer = transfer_->ring.deliver();
  if (!buffer.isDrawn || !description_.still) {
    buffer.isDrawn = true;
    picture::draw(scene(), buffer.picture, buffer.pixels.get());
    if (buffer.frame.format == picture::pixelFormatMono10) {
      picture::widen_to_mono10(buffer.pixels.get(), settings_.width * settings_.height);
    }
  }
  health_.frame_id = buffer.frame.id;
  health_.frame_time_ns = buffer.picture.timeUs * 1000;
  return &buffer.frame;
}

const picture::scene& simulated_camera::scene() {
  if (!scene_) {
    scene_.emplace(static_cast<std::size_t>(description_.width),
                   static_cast<std::size_t>(description_.height));
  }
  return *scene_;
}

// When the next frame is ready, or the deadline if that is earlier.
std::uint64_t simulated_camera::next_event(std::uint64_t deadlineUs) const {
  const bool isBlocked = description_.freePacing && transfer_ && !transfer_->ring.has_free();
  if (!exposes() || isBlocked) {
    return deadlineUs;
  }
  const double exposureUs = description_.freePacing ? 0 : settings_.exposureUs;
  const double ready = std::ceil(transfer_->nextStartUs + exposureUs);
  return ready < static_cast<double>(deadlineUs) ? static_cast<std::uint64_t>(ready) : deadlineUs;
}

GEV_STATUS simulated_camera::wait(GEV_BUFFER_OBJECT** frame, std::uint32_t timeoutMs) {
  std::unique_lock lock(mutex_);
  std::uint64_t now = clock_us();
  const std::uint64_t deadline = now + timeoutMs * usPerMs;
  const std::uint64_t stopsBefore = stops_;
  for (;; now = clock_us()) {
    if (isCancelled_) {
      return GEVLIB_ERROR_DEVICE_LOST;
    }
    catch_up(now);
    expose_for_wait(now);
    if (transfer_ && transfer_->ring.has_queued()) {
      *frame = deliver();
      return (*frame)->status;
    }
    if (now >= deadline) {
      return GEVLIB_ERROR_TIME_OUT;
    }
    wait_until(wake_, lock, next_event(deadline));
    if (stops_ != stopsBefore && !isCancelled_) {
      return GEVLIB_ERROR_ABORTED;
    }
  }
}

GEV_STATUS simulated_camera::release(const GEV_BUFFER_OBJECT* frame) {
  const std::scoped_lock lock(mutex_);
  catch_up(clock_us());
  return transfer_ && transfer_->ring.release(frame) ? GEVLIB_OK : GEVLIB_ERROR_PARAMETER_INVALID;
}

// ---- camera_extension.h and sim.h

bool simulated_camera::is_open() {
  const std::scoped_lock lock(mutex_);
  return opened_.has_value();
}

std::vector<std::unique_ptr<gev::extension_feature>> simulated_camera::list_features() {
  const std::scoped_lock lock(mutex_);
  std::vector<std::unique_ptr<gev::extension_feature>> listed;
  features_.for_each_present(
      [&](simulated_feature& each) { listed.push_back(std::make_unique<gev::extension_feature>(each)); });
  return listed;
}

camera_extension_health_record simulated_camera::health() {
  const std::scoped_lock lock(mutex_);
  catch_up(clock_us());
  camera_extension_health_record now = health_;
  now.transport = camera_extension_simulated;
  now.buffers = options_.streamNumFramesBuffered;
  return now;
}

void simulated_camera::cancel() {
  cancel_slow_events(serial());
  const std::scoped_lock lock(mutex_);
  if (opened_) {
    isCancelled_ = true;
    stop();
  }
}

std::uint64_t simulated_camera::frames_lost() {
  const std::scoped_lock lock(mutex_);
  catch_up(clock_us());
  return lost_;
}

bool simulated_camera::has_transfer() {
  const std::scoped_lock lock(mutex_);
  return transfer_.has_value();
}

std::size_t simulated_camera::frames_held() {
  const std::scoped_lock lock(mutex_);
  return transfer_ ? transfer_->ring.held() : 0;
}

}  // namespace sim
