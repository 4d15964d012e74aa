#include "platform/aravis/emulator/camera.h"

#include <arpa/inet.h>
#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace gvcam {
namespace {

using picture::picture_settings;
using picture::tone_curve;

constexpr const char* vendorName = "Emulated Cameras";
constexpr const char* modelName = "gvcam";
constexpr const char* versionText = "1.0";

constexpr std::uint32_t off = 0;
constexpr std::uint32_t on = 1;
constexpr std::uint32_t lutTypeGamma = 1;
constexpr std::uint32_t temperatureOfMainboard = 1;
constexpr std::uint32_t lineFollowsExposure = 1;
constexpr std::uint32_t triggerOfSoftware = 1;
constexpr std::uint32_t controlAccess = 2;

constexpr register_address wordSize = 4;
constexpr register_address numberSize = 8;
constexpr std::size_t firstInfraredLine = 2;  // Line3 and Line4

constexpr double powerUpExposureUs = 5000;
constexpr double slowestHz = 0.1;
constexpr std::uint64_t mostLateUs = 500'000;  // frames that are later than that are left out
constexpr double sensorAboveCase = 6.5;        // degrees

// What is attached to the library's objects.
constexpr const char* cameraKey = "gvcam-camera";  // to an ArvFakeCamera its camera
constexpr const char* seenKey = "gvcam-seen";      // to an ArvBuffer that it held a frame before

std::uint64_t now_us() {
  return static_cast<std::uint64_t>(g_get_monotonic_time());
}

// Locally administered, and the same for the same serial number wherever it runs.
std::uint32_t mac_low(const std::string& serial) {
  std::uint32_t hash = 2166136261U;
  for (const char letter : serial) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619U;
  }
  return hash;
}

// What the light on an output line adds to each exposure: the pulse as far as it lies within the exposure,
// or, inverted, the rest of the exposure. Only a line that follows the exposure pulses.
double lit_us(const registers& memory, std::size_t line, double exposureUs) {
  const auto at = static_cast<register_address>(line * wordSize);
  const double delay = memory.word(own::pulseDelayUs + at);
  const double end = delay + memory.word(own::pulseDurationUs + at);
  const bool follows = memory.word(own::lineSource + at) == lineFollowsExposure;
  const double pulse = follows ? std::clamp(end, 0.0, exposureUs) - std::clamp(delay, 0.0, exposureUs) : 0;
  return memory.word(own::lineInverter + at) != off ? exposureUs - pulse : pulse;
}

tone_curve tone(const registers& memory) {
  return memory.word(own::lutMode) == off            ? tone_curve::linear
         : memory.word(own::lutType) == lutTypeGamma ? tone_curve::gamma
                                                     : tone_curve::negative;
}

// A client may write anything into a number, so that it need not be one.
double sane(double number, double min, double max) {
  return number >= min ? std::min(number, max) : min;
}

double exposure_us(const registers& memory) {
  return sane(memory.number(own::exposureTimeUs), 0, 1e9);
}

double interval_us(const registers& memory) {
  const double rate = sane(memory.number(own::acquisitionFrameRate), slowestHz, 1e6);
  return std::max(1e6 / rate, exposure_us(memory));
}

picture_settings settings_of(const registers& memory) {
  picture_settings settings;
  settings.exposureUs = exposure_us(memory);
  settings.gain =
      sane(memory.number(own::gain), 0, 1e6) * sane(memory.number(own::gain + numberSize), 0, 1e6);
  settings.infraredUs = {lit_us(memory, firstInfraredLine, settings.exposureUs),
                         lit_us(memory, firstInfraredLine + 1, settings.exposureUs)};
  settings.tone = tone(memory);
  settings.gamma = memory.number(own::gammaCorrection);
  settings.offsetX = memory.word(emulator::offsetX);
  settings.offsetY = memory.word(emulator::offsetY);
  settings.width = memory.word(emulator::width);
  settings.height = memory.word(emulator::height);
  settings.reverseX = memory.word(own::reverseX) != off;
  settings.reverseY = memory.word(own::reverseY) != off;
  return settings;
}

bool fits(const picture_settings& window, const picture::scene& sensor) {
  return window.offsetX + window.width <= sensor.width() && window.offsetY + window.height <= sensor.height();
}

// Eight bits a pixel become ten in two bytes, low byte first, from the end so that it can be done in place.
void widen(std::uint8_t* pixels, std::size_t count) {
  for (std::size_t at = count; at-- > 0;) {
    const unsigned wide = pixels[at] * 4U;
    pixels[2 * at] = static_cast<std::uint8_t>(wide);
    pixels[2 * at + 1] = static_cast<std::uint8_t>(wide >> 8);
  }
}

}  // namespace

camera::camera(std::string serial, std::string address, const camera_setup& setup,
               const picture::scene& scene)
    : serial_(std::move(serial)),
      address_(std::move(address)),
      setup_(setup),
      scene_(scene),
      client_(address_),
      thermometer_(now_us()) {}

// ---- Power

void camera::power_on() {
  if (device_) {
    return;
  }
  // The library's camera counts as running even if it got no socket.
  if (const std::string obstacle = control_port_obstacle(address_); !obstacle.empty()) {
    throw std::runtime_error(serial_ + " cannot listen on " + address_ + ", UDP port 3956: " + obstacle);
  }
  device_.reset(arv_gv_fake_camera_new_full(address_.c_str(), serial_.c_str(), setup_.description.c_str()));
  ArvFakeCamera* const fake = arv_gv_fake_camera_get_fake_camera(device_.get());
  write_power_up();
  powerUp_ = memory().snapshot();
  poweredOn_ = std::chrono::steady_clock::now();
  arv_fake_camera_set_fill_pattern(fake, &camera::fill, this);
  g_object_set_data(G_OBJECT(fake), cameraKey, this);
  apply_losses();
  tick();
  if (const std::string found = client_.discover(); found != serial_) {
    power_off();
    throw std::runtime_error(serial_ + " does not answer on " + address_ +
                             (found.empty() ? "" : ", but " + found + " does"));
  }
}

void camera::power_off() {
  if (device_) {  // no reset(): the device's thread asks for it until it has ended
    device_.get_deleter()(device_.get());
    static_cast<void>(device_.release());
  }
  controls_ = false;
}

// What is not written is off or 0, or as the library has it.
void camera::write_power_up() {
  registers to = memory();
  to.set_word(bootstrap::macHigh, 0x0200);
  to.set_word(bootstrap::macLow, mac_low(serial_));
  to.set_text(bootstrap::manufacturer, 32, vendorName);
  to.set_text(bootstrap::model, 32, modelName);
  to.set_text(bootstrap::version, 32, versionText);
  to.set_text(bootstrap::serial, 16, serial_);
  to.set_word(bootstrap::packetSize, setup_.packetSize);
  for (const register_address width : {emulator::sensorWidth, emulator::width}) {
    to.set_word(width, setup_.width);
  }
  for (const register_address height : {emulator::sensorHeight, emulator::height}) {
    to.set_word(height, setup_.height);
  }
  to.set_number(own::exposureTimeUs, powerUpExposureUs);
  to.set_word(emulator::triggerSource, triggerOfSoftware);
  to.set_number(own::acquisitionFrameRate, setup_.framesPerSecond);
  to.set_number(own::gain, 1);
  to.set_number(own::gain + numberSize, 1);
  to.set_word(own::lutMode, on);
  to.set_word(own::lutType, lutTypeGamma);
  to.set_number(own::gammaCorrection, 1);
  to.set_word(own::temperatureSelector, temperatureOfMainboard);
}

// ---- Faults

void camera::set_loss(double ratio) {
  loss_ = ratio;
  apply_losses();
}

void camera::set_silent(bool silent) {
  silent_ = silent;
  apply_losses();
}

void camera::apply_losses() {
  if (device_) {
    g_object_set(device_.get(), "gvsp-lost-ratio", silent_ ? 1.0 : loss_, nullptr);
  }
}

void camera::set_busy(bool busy) {
  busy_ = busy;
  if (!busy && controls_) {
    client_.write_register(bootstrap::controlPrivilege, off);
  }
  tick();
}

void camera::tick() {
  if (!device_) {
    return;
  }
  measure_temperature();
  if (memory().word(bootstrap::controlPrivilege) == off) {
    controls_ = busy_ && client_.write_register(bootstrap::controlPrivilege, controlAccess);
  }
  // To be asked for its control privilege is a heartbeat to the camera, whoever asks.
  client_.read_register(controls_ ? bootstrap::controlPrivilege : bootstrap::version);
}

void camera::measure_temperature() {
  registers now = memory();
  const double rate = now.word(emulator::acquisition) == off ? 0 : 1e6 / interval_us(now);
  const double inside = thermometer_.after(now_us(), rate);
  now.set_number(own::temperature, inside);
  now.set_number(own::temperature + numberSize, inside + sensorAboveCase);
}

// ---- In the camera's own thread

void camera::on_control_released() {
  if (!setup_.keepOnClose) {
    memory().restore(powerUp_);
  }
}

void camera::fill(ArvBuffer* buffer, void* self, guint32 /*exposureUs*/, guint32 /*gain*/,
                  ArvPixelFormat /*format*/) {
  static_cast<camera*>(self)->expose(buffer);
}

void camera::expose(ArvBuffer* buffer) {
  const registers now = memory();
  exposedUs_ = static_cast<std::uint64_t>(g_get_real_time());
  number(buffer);
  if (!setup_.still || frameId_ == 1) {
    std::size_t unused = 0;
    draw(now, static_cast<std::uint8_t*>(const_cast<void*>(arv_buffer_get_data(buffer, &unused))));
  }
}

// Frames count from 1 in each acquisition, for which the library makes a buffer of its own. After 65535
// comes 1.
void camera::number(ArvBuffer* buffer) {
  GObject* const object = G_OBJECT(buffer);
  if (g_object_get_data(object, seenKey) == nullptr) {
    g_object_set_data(object, seenKey, this);
    frameId_ = 0;
    dueUs_ = 0;
  }
  frameId_ = frameId_ == UINT16_MAX ? std::uint16_t{1} : static_cast<std::uint16_t>(frameId_ + 1);
  arv_buffer_set_frame_id(buffer, frameId_);
  const auto age = std::chrono::steady_clock::now() - poweredOn_;
  arv_buffer_set_timestamp(
      buffer, static_cast<guint64>(std::chrono::duration_cast<std::chrono::nanoseconds>(age).count()));
}

std::uint64_t camera::schedule_frame(std::uint64_t nowUs) {
  // Unsigned, so that a clock that was set back counts as late, too.
  const std::uint64_t from = nowUs - dueUs_ > mostLateUs ? nowUs : dueUs_;
  const auto interval = static_cast<std::uint64_t>(std::llround(interval_us(memory())));
  dueUs_ = from + interval;
  return std::max(dueUs_, exposedUs_ + interval / 2);
}

// The library sees to it that there is room for the size and format of the moment.
void camera::draw(const registers& now, std::uint8_t* pixels) const {
  picture_settings settings = settings_of(now);
  settings.noise = setup_.noise;
  settings.noiseSeed = frameId_;
  settings.timeUs = static_cast<std::uint64_t>(frameId_ * interval_us(now));
  const std::size_t count = settings.width * settings.height;
  const bool wide = now.word(emulator::pixelFormat) == ARV_PIXEL_FORMAT_MONO_10;
  if (!fits(settings, scene_)) {
    std::fill_n(pixels, count, std::uint8_t{0});
    return;
  }
  picture::draw(scene_, settings, pixels);
  if (wide) {
    widen(pixels, count);
  }
}

}  // namespace gvcam

// ---- In front of functions of the libraries

// The libraries call these instead of their own functions of the same names.

namespace {

// When the camera whose thread this is sends its next frame, microseconds of the realtime clock; 0 when it is
// not known.
thread_local guint64 frameDueUs = 0;

gvcam::camera* camera_of(ArvFakeCamera* fake) {
  return static_cast<gvcam::camera*>(g_object_get_data(G_OBJECT(fake), gvcam::cameraKey));
}

}  // namespace

// The library has no other way to tell when control is released, by a client or for the lack of its
// heartbeat, and a client that lets go of the camera and opens it again at once must find the power-up
// settings.
gboolean arv_fake_camera_write_register(ArvFakeCamera* fake, guint32 address, guint32 value) {
  const guint32 wire = htonl(value);
  const gboolean done = arv_fake_camera_write_memory(fake, address, sizeof wire, &wire);
  gvcam::camera* const camera = camera_of(fake);
  if (camera != nullptr && address == gvcam::bootstrap::controlPrivilege && value == gvcam::off) {
    camera->on_control_released();
  }
  return done;
}

// The library leaves out each frame that it has no time for when it is due.
guint64 arv_fake_camera_get_sleep_time_for_next_frame(ArvFakeCamera* fake, guint64* nextUs) {
  const auto nowUs = static_cast<guint64>(g_get_real_time());
  frameDueUs = camera_of(fake)->schedule_frame(nowUs);
  if (nextUs != nullptr) {
    *nextUs = frameDueUs;
  }
  return frameDueUs - std::min(frameDueUs, nowUs);
}

// The library takes a frame that is due already for one that is due in ages, and waits for 100 ms.
__attribute__((visibility("default"))) gint g_poll(GPollFD* descriptors, guint count, gint timeoutMs) {
  static auto* const original = reinterpret_cast<decltype(&g_poll)>(dlsym(RTLD_NEXT, "g_poll"));
  if (frameDueUs != 0 && static_cast<guint64>(g_get_real_time()) >= frameDueUs) {
    frameDueUs = 0;
    timeoutMs = 0;
  }
  return original(descriptors, count, timeoutMs);
}
