#include "src/gev_device.h"

#include <array>
#include <charconv>
#include <string>
#include <utility>

#include "core/numeric.h"
#include "core/time_helpers.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {
namespace {

using config_view = table<property, table_like>;

// Logged after the exception that ended a construction: one status for each kind of exception.
constexpr int kGevStatusNodeMap = -3;
constexpr int kGevStatusStandard = -14;

constexpr std::uint32_t kTickFrequencyDefaultHz = 1'000'000'000;

constexpr double kGammaTolerance = 0.01;      // how far beyond the camera's range a gamma is still passed on
constexpr float kGammaOffTolerance = 0.001F;  // how far from 1.0 a gamma still means off

constexpr std::uint32_t kWaitMs = 1000;
constexpr std::uint32_t kFrameFormatMono8 = 1;
constexpr std::int32_t kRunFailed = 1;  // looks like SIGHUP to the host, which then starts over

constexpr float kSensorTempMinC = -300.0F;  // at or below it there is no reading

}  // namespace

device* Device__Create(device_handler_like* handler, table_like* config) {
  LOG(5, "exec");
  std::shared_ptr<camera_api> connection = CameraApi__Create(config);
  return new device(handler, config, std::move(connection));
}

device::device(device_handler_like* host, table_like* config, std::shared_ptr<camera_api> connection)
    : handler(host), camera(std::move(connection)) {
  LOG(5, "exec");
  const config_view view(config);
  camera->setupStream(view);
  try {
    readTickFrequency();
    LOG(4, "stat: GevTimestampTickFrequency:%u", tickFrequencyHz);
    camera->setupPixelFormat(view);
    camera->setupCamChunks();
    camera->setBrightnessMode();
    setup(false, config);
    LOG(4, "done");
  } catch (const GenICam::GenericException& error) {
    LOG(1, "fail: exception <%s>", error.what());
    LOG(1, "fail: gev-status:%i", kGevStatusNodeMap);
    throw internal_error();
  } catch (const std::exception& error) {
    LOG(1, "fail: exception <%s>", error.what());
    LOG(1, "fail: gev-status:%i", kGevStatusStandard);
    throw internal_error();
  }
}

void device::readTickFrequency() {
  int type = 0;
  std::uint64_t ticks = 0;
  GevGetFeatureValue(camera->handle.get(), "GevTimestampTickFrequency", &type, sizeof ticks, &ticks);
  tickFrequencyHz = static_cast<std::uint32_t>(ticks);
  if (tickFrequencyHz == 0) {
    tickFrequencyHz = kTickFrequencyDefaultHz;
  }
}

void device::setup(bool restart, table_like* config) {
  const config_view view(config);
  bool frameStopped = false;
  camera->gain.setup(view);
  camera->exposure.setup(view);
  setupCamSweepGamma(config, restart, &frameStopped);
  camera->setup(config);
  if (frameStopped) {
    camera->startGrabber();
  }
}

void device::setupCamSweepGamma(table_like* config, bool restart, bool* frameStopped) {
  const config_view view(config);
  float gamma = 0;
  if (!view.getFloat(property::VS_SWEEP_MANUAL_GAMMA, 0, gamma)) {
    LOG(4, "done: VS_SWEEP_MANUAL_GAMMA (provided:false)");
    return;
  }
  float min = 0;
  float max = 0;
  if (camera->gamma.getGammaLimits(min, max) != 0) {
    LOG(2, "fail: Gamma is not supported for this device");
    return;
  }
  const gev_gamma_state state = camera->gamma.getGammaState();
  const auto wide = static_cast<double>(gamma);
  if (min - kGammaTolerance > wide || wide > max + kGammaTolerance) {
    LOG(2, "  asked Gamma val %f is out of bounds [%.2f,%.2f], skipped", wide, static_cast<double>(min),
        static_cast<double>(max));
    return;
  }
  const bool off = gamma - 1.0F < kGammaOffTolerance && 1.0F - gamma < kGammaOffTolerance;
  if (off && state != kGEV_GAMMA_STATE__GAMMA) {
    LOG(3, "  Gamma control is already turned off");
    return;
  }
  if (off) {
    LOG(3, "Disabling LUT/Gamma control follow Gamma configuration");
    stopForChange(restart, frameStopped);
    camera->gamma.setGammaState(kGEV_GAMMA_STATE__OFF);
  } else {
    stopForChange(restart, frameStopped);
    camera->gamma.setGamma(gamma, &state);
  }
}

// The LUT is changed only while no frames flow. The first change of a set-up stops the transfer; the end of
// the set-up starts it again.
void device::stopForChange(bool restart, bool* frameStopped) {
  if (restart && !*frameStopped) {
    camera->stopGrabber();
    *frameStopped = true;
  }
}

// What one run keeps from frame to frame.
struct device::acquisition {
  std::uint64_t startUs;              // realtime clock just before the transfer was started
  std::uint32_t passes = 0;           // waits that have returned
  std::uint64_t frames = 0;           // that have arrived
  std::int32_t lagUs = 0;             // how late the first of them was
  std::uint64_t nextTimestampUs = 0;  // estimate for the next frame
};

// The camera's transfer for the length of a run, however the run ends.
class device::transfer {
 public:
  transfer(camera_api& camera, const acquisition& run) : camera_(camera), run_(run) {
    camera_.startGrabber();
  }
  ~transfer() {
    camera_.stopGrabber();
    if (run_.passes > 0) {
      GevFreeTransfer(camera_.handle.get());
    }
  }
  transfer(const transfer&) = delete;
  transfer& operator=(const transfer&) = delete;

 private:
  camera_api& camera_;
  const acquisition& run_;
};

std::int32_t device::run(cam_stream_handler_like* stream) {
  LOG(4, "exec");
  streamHandler = stream;
  try {
    const std::int32_t signal = run2();
    LOG(4, "done");
    return signal;
  } catch (const generic_error&) {
    LOG(1, "fail");
  } catch (const std::exception& error) {
    LOG(1, "fail: exception <%s>", error.what());
  }
  return kRunFailed;
}

std::int32_t device::run2() {
  camera->gamma.setGammaState(kGEV_GAMMA_STATE__OFF);
  acquisition run{Time__GetTimeUsec()};
  const transfer running(*camera, run);
  std::int32_t signal = kPENDING_SIGNAL__NONE;
  try {
    do {
      signal = takeFrame(run, caller::here());
    } while (signal != kPENDING_SIGNAL__SIGTERM && signal != kPENDING_SIGNAL__SIGHUP);
  } catch (const GenICam::GenericException& error) {
    LOG(1, "fail: exception <%s>", error.what());
    return kRunFailed;
  } catch (const std::exception& error) {
    LOG(1, "fail: exception <%s>", error.what());
    return kRunFailed;
  }
  streamHandler->onNoFrame();
  return signal;
}

// One pass of the loop. Gives the host's pending signal, none when no frame came.
std::int32_t device::takeFrame(acquisition& run, caller where) {
  GEV_BUFFER_OBJECT* frame = waitForFrame(run);
  if (frame == nullptr) {
    return kPENDING_SIGNAL__NONE;
  }
  announceFrame();
  const std::uint64_t nowUs = Time__GetTimeUsec();
  if (++run.frames == 1) {
    run.lagUs = firstFrameLagUs(run, *frame, nowUs);
  } else {
    handOver(run, *frame);
  }
  GevReleaseFrame(camera->handle.get(), frame);
  run.nextTimestampUs = nextTimestampUs(run, nowUs);
  return takePendingSignal(where);
}

// The next frame, to be released; null, after telling the host, when the wait brought none that can be used.
GEV_BUFFER_OBJECT* device::waitForFrame(acquisition& run) {
  GEV_BUFFER_OBJECT* frame = nullptr;
  const GEV_STATUS status = GevWaitForNextFrame(camera->handle.get(), &frame, kWaitMs);
  ++run.passes;
  if (frame != nullptr && frame->address != nullptr && status == 0) {
    return frame;
  }
  streamHandler->onNoFrame();
  if (frame != nullptr) {
    GevReleaseFrame(camera->handle.get(), frame);
  }
  return nullptr;
}

void device::announceFrame() {
  const float tempC = camera->getSensorTempC();
  sensorTempC.store(tempC, std::memory_order_relaxed);
  streamHandler->onFrameTick(tempC);
  handler->heartbeat();
}

// One frame period after this frame, less the lag of the first one.
std::uint64_t device::nextTimestampUs(const acquisition& run, std::uint64_t nowUs) const {
  return nowUs + timestampOffsetUs + camera->fps.periodUs -
         static_cast<std::uint64_t>(std::int64_t{run.lagUs});
}

// The host's pending signal; without one, pending settings are applied.
std::int32_t device::takePendingSignal(caller where) {
  const std::int32_t signal = handler->getPendingSignal();
  switch (signal) {
    case kPENDING_SIGNAL__SIGTERM:
      LOG_FROM(where, 3, "done: kPENDING_SIGNAL__SIGTERM");
      break;
    case kPENDING_SIGNAL__SIGHUP:
      LOG_FROM(where, 3, "done: kPENDING_SIGNAL__SIGHUP");
      break;
    case kPENDING_SIGNAL__NONE:
      applyPendingSweep(where);
      break;
    default:
      break;
  }
  return signal;
}

// How much later the first frame came than expected: one frame period after the start for every wait before
// it. At 25 Hz, a first frame that came 83,000 us after the start, in the second wait, has a lag of 43,000
// us. When a camera gives its timestamp in two halves only, the lag is exposure time plus timestamp. The
// arithmetic has 32 bits and may wrap around.
std::int32_t device::firstFrameLagUs(const acquisition& run, const GEV_BUFFER_OBJECT& frame,
                                     std::uint64_t nowUs) {
  const std::uint64_t whole = frame.timestamp;
  const std::uint64_t halves = std::uint64_t{frame.timestamp_hi} << 32U | frame.timestamp_lo;
  const double usPerTick = 1'000'000.0 / tickFrequencyHz;
  const auto wholeUs = truncateTo<std::uint64_t>(static_cast<double>(whole) * usPerTick);
  const auto frameUs =
      truncateTo<std::uint64_t>(static_cast<double>(whole != 0 ? whole : halves) * usPerTick);
  if (frameUs == 0 || wholeUs == frameUs) {
    const std::uint32_t passesBefore = run.passes - 1;
    const std::uint32_t expectedUs =
        passesBefore * camera->fps.periodUs + static_cast<std::uint32_t>(run.startUs);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(nowUs) - expectedUs);
  }
  const auto exposureUs = truncateTo<std::int64_t>(static_cast<double>(camera->exposure.exposure.getValue()));
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(exposureUs) +
                                   static_cast<std::uint32_t>(frameUs - wholeUs));
}

void device::handOver(const acquisition& run, const GEV_BUFFER_OBJECT& frame) {
  cam_frame_info info{};
  info.timestampUs = run.nextTimestampUs;
  info.gainDb = camera->gain.getGainDb();
  info.exposureUs = camera->exposure.exposure.getValue();
  info.width = static_cast<std::uint16_t>(frame.w);
  info.height = static_cast<std::uint16_t>(frame.h);
  info.format = kFrameFormatMono8;
  streamHandler->onFrame(&info, frame.address, frame.w * frame.h);
}

void device::applyPendingSweep(caller where) {
  rw_table_like* created = Table__Create();
  const rw_table<property> sweep(created);
  created->release();  // the holder has its own reference; the host finds exactly one
  if (handler->tryPopPendingSweepConf(sweep.get())) {
    setup(true, sweep.get());
    LOG_FROM(where, 4, "done: tryPopPendingSweepConf");
  }
}

void device::collectStats(void (*callback)(void* context, const char* json), void* context) {
  const float tempC = sensorTempC.load(std::memory_order_relaxed);
  if (!(tempC > kSensorTempMinC)) {
    return;
  }
  // Six significant digits, with a decimal point whatever the host's locale says.
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), static_cast<double>(tempC),
                                 std::chars_format::general, 6);
  const std::string json =
      R"({"type":"mediagrabber~device","name": "mediagrabber.0~device.0","stat": {"temp": )" +
      std::string(digits.data(), end.ptr) + "}}";
  callback(context, json.c_str());
}

void device::destroy() {
  delete this;
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
