#include "platform/gige/camera.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <string_view>
#include <utility>

#include "core/log.h"
#include "platform/gev/exceptions.h"
#include "platform/gev/stream_options.h"
#include "platform/gige/control/addresses.h"
#include "platform/gige/description/description_source.h"
#include "platform/gige_protocol/bytes.h"
#include "platform/gige_protocol/registers.h"

namespace gige {
namespace {

namespace registers = gige_protocol::registers;
using std::chrono::milliseconds;

// So long closing a camera takes, whatever the camera does.
constexpr milliseconds closingBudget(80);

access_mode mode_of(GevAccessMode mode) {
  return mode == GevMonitorMode     ? access_mode::monitor
         : mode == GevExclusiveMode ? access_mode::exclusive
                                    : access_mode::control;
}

patience patience_of(const GEV_CAMERA_OPTIONS& options) {
  return {.answer = milliseconds(options.command_timeout_ms), .retries = options.numRetries};
}

// Until a camera answered for the first time, it is not worth the wait for one that is just busy.
patience patience_at_first() {
  return {.answer = milliseconds(200), .retries = 2};
}

}  // namespace

// ---- Opening and closing

camera::camera(std::shared_ptr<link> owner, const camera_place& where, GevAccessMode mode,
               environment surroundings)
    : link_(std::move(owner)),
      surroundings_(std::move(surroundings)),
      monitoring_(mode == GevMonitorMode),
      options_(gev::default_options()),
      channel_(link_, where.ownAddress, where.address, patience_at_first()),
      control_(link_, channel_, mode_of(mode)),
      port_(channel_),
      features_(read_features()),
      nodes_(*this),
      reference_(&nodes_) {
  features_->fill(nodes_);
  read_camera_options();
  link_->on_loss([this] { stream_.lose(); });
  LOG(4, "done: camera %s at %s opened from %s", serial().c_str(), address_text(where.address).c_str(),
      address_text(channel_.own_address()).c_str());
}

camera::~camera() {
  hurry();
  try {
    abort();
  } catch (const GenICam::GenericException& error) {
    LOG(2, "fail: stopping %s (reason:%s)", serial().c_str(), error.what());
  } catch (const std::exception& error) {
    LOG(2, "fail: stopping %s (reason:%s)", serial().c_str(), error.what());
  }
  stream_.clear();
  link_->on_loss({});
}

void camera::hurry() {
  link_->hurry(closingBudget);
  stream_.close();
}

std::unique_ptr<camera_features> camera::read_features() {
  channel_.set_patience(patience_of(options_));
  std::array<std::string, 2> urls;
  constexpr std::array addresses = {registers::firstUrl, registers::secondUrl};
  for (std::size_t at = 0; at < urls.size(); ++at) {
    std::array<std::uint8_t, registers::urlSize> text{};
    port_.read(addresses[at], text);
    const std::string_view whole(reinterpret_cast<const char*>(text.data()), text.size());
    urls[at] = whole.substr(0, whole.find('\0'));
  }
  const std::string xml = load_description(urls, port_,
                                           {.camera = channel_.camera_address(),
                                            .directory = surroundings_.descriptionDirectory,
                                            .cancelled = link_->event()});
  return std::make_unique<camera_features>(xml, port_, camera_features::setup{.monitoring = monitoring_});
}

// What the camera has, and can; the rest is the library's.
void camera::read_camera_options() {
  namespace protocol = gige_protocol;
  ticksPerSecond_ = std::uint64_t{read_if_there(registers::timestampFrequencyHigh)} << 32U |
                    read_if_there(registers::timestampFrequencyLow);
  resends_ = (read_if_there(registers::gvcpCapability) & protocol::gvcp_capability::packetResend) != 0;
  tellsSourcePort_ = (read_if_there(registers::gvspCapability) & protocol::gvsp_capability::sourcePort) != 0;
  extendedIds_ =
      (read_if_there(registers::gvspConfiguration) & protocol::gvsp_configuration::extendedIds) != 0;
  if (const std::uint32_t heartbeat = read_if_there(registers::heartbeatTimeout); heartbeat != 0) {
    options_.heartbeat_timeout_ms = heartbeat;
  }
  if (const std::uint32_t size = read_if_there(registers::streamPacketSize) & protocol::packet_size::sizeMask;
      size != 0) {
    options_.streamPktSize = size;
  }
}

std::vector<std::unique_ptr<gev::extension_feature>> camera::list_features() {
  const std::scoped_lock lock(mutex_);
  std::vector<std::unique_ptr<gev::extension_feature>> listed;
  for (gev::feature* const each : features_->all()) {
    listed.push_back(std::make_unique<gev::extension_feature>(*each));
  }
  return listed;
}

// ---- Registers past the nodes, which learn of each write

std::uint32_t camera::read_register(std::uint32_t address) {
  std::array<std::uint8_t, 4> bytes{};
  features_->registers().read(address, bytes);
  return gige_protocol::load<std::uint32_t>(bytes, 0);
}

// 0 for a register that the camera does not have.
std::uint32_t camera::read_if_there(std::uint32_t address) {
  try {
    return read_register(address);
  } catch (const GenICam::TimeoutException&) {
    throw;
  } catch (const GenICam::GenericException&) {
    return 0;
  }
}

void camera::write_register(std::uint32_t address, std::uint32_t value) {
  std::array<std::uint8_t, 4> bytes{};
  gige_protocol::store(bytes, 0, value);
  features_->registers().write(address, bytes);
}

bool camera::try_to_write(const char* what, std::uint32_t address, std::uint32_t value) {
  try {
    write_register(address, value);
    return true;
  } catch (const GenICam::GenericException& error) {
    LOG(2, "fail: %s of %s (value:%u, reason:%s)", what, serial().c_str(), value, error.what());
    return false;
  }
}

void camera::write_if_present(const char* name, const gev::value& to) {
  gev::feature* const feature = features_->find(name);
  if (feature != nullptr && feature->access() == GenApi::RW && feature->get(false) != to) {
    feature->set(to);
  }
}

// ---- Options

GEV_STATUS camera::read_options(GEV_CAMERA_OPTIONS* to) {
  const std::scoped_lock lock(mutex_);
  return gev::read_options(options_, to);
}

GEV_STATUS camera::write_options(const GEV_CAMERA_OPTIONS* wanted) {
  const std::scoped_lock lock(mutex_);
  if (const GEV_STATUS status = gev::replace_options(options_, wanted); status != GEVLIB_OK) {
    return status;
  }
  packetDelayWritten_ = false;
  packetSizeSettled_ = false;
  channel_.set_patience(patience_of(options_));
  return monitoring_ || send_options() ? GEVLIB_OK : failure();
}

// While frames are transferred the packet options wait for the next start.
bool camera::send_options() {
  if (!try_to_write("heartbeat time-out", registers::heartbeatTimeout, options_.heartbeat_timeout_ms)) {
    return false;
  }
  if (acquiring_) {
    return true;
  }
  const bool sizeWritten =
      options_.streamPktSize == 0 ||
      try_to_write("packet size", registers::streamPacketSize, packet_size_flags() | options_.streamPktSize);
  return sizeWritten && write_packet_delay();
}

bool camera::write_packet_delay() {
  if (!packetDelayWritten_) {
    const double ticks = options_.streamPktDelay * 1e-6 * static_cast<double>(ticksPerSecond_);
    packetDelayWritten_ = try_to_write("packet delay", registers::streamPacketDelay,
                                       static_cast<std::uint32_t>(std::min(ticks, 4e9)));
  }
  return packetDelayWritten_;
}

std::uint32_t camera::packet_size_flags() {
  return read_register(registers::streamPacketSize) & ~gige_protocol::packet_size::sizeMask;
}

GEV_STATUS camera::failure() const {
  return link_->lost() ? GEVLIB_ERROR_DEVICE_LOST : GEVLIB_ERROR_GENERIC;
}

// ---- Transfer

std::uint32_t camera::needed_size(const char* name) {
  gev::feature* const feature = features_->find(name);
  const std::int64_t size = feature == nullptr ? 0 : gev::to_integer(gev::read(*feature, false, false));
  if (size <= 0 || size > UINT32_MAX) {
    gev::raise<GenICam::RuntimeException>(std::string(name) +
                                          ": the camera does not say how large a frame is");
  }
  return static_cast<std::uint32_t>(size);
}

stream_setup camera::setup_of_transfer() {
  gev::feature* const format = features_->find("PixelFormat");
  return {.camera = serial(),
          .ownAddress = channel_.own_address(),
          .cameraAddress = channel_.camera_address(),
          .sourcePort = sourcePort_,
          .transport = surroundings_.transport,
          .socketBufferBytes = options_.streamSocketBufferSize != 0 ? options_.streamSocketBufferSize
                                                                    : surroundings_.socketBufferBytes,
          .payloadBytes = needed_size("PayloadSize"),
          .width = needed_size("Width"),
          .height = needed_size("Height"),
          .pixelFormat = format == nullptr
                             ? fmtMono8
                             : static_cast<std::uint32_t>(gev::to_integer(gev::read(*format, false, false))),
          .packetBytes = read_register(registers::streamPacketSize) & gige_protocol::packet_size::sizeMask,
          .extendedIds = extendedIds_,
          .ticksPerSecond = ticksPerSecond_,
          .cameraResends = resends_,
          .maxPacketResends = options_.streamMaxPacketResends,
          .packetResendMs = options_.streamPktResend_timeout_ms,
          .frameTimeoutMs = options_.streamFrame_timeout_ms,
          .framesBuffered = options_.streamNumFramesBuffered,
          .memoryLimitBytes = options_.streamMemoryLimitMax,
          .threadAffinity = options_.streamThreadAffinity,
          .threadPriority = options_.streamThreadPriority};
}

// A start after an abort finds everything as it was, and costs no command.
void camera::prepare_stream() {
  stream_.prepare(setup_of_transfer());
  point_stream_here();
  if (!packetSizeSettled_) {
    const std::uint32_t size = settle_packet_size();
    write_register(registers::streamPacketSize, packet_size_flags() | size);
    packetSizeSettled_ = true;
  }
  stream_.prepare(setup_of_transfer());
}

void camera::point_stream_here() {
  if (stream_.port() == pointedPort_) {
    return;
  }
  write_register(registers::streamDestination, channel_.own_address());
  write_register(registers::streamPort, stream_.port());
  pointedPort_ = stream_.port();
  features_->registers_changed(registers::streamSourcePort, 4);
  sourcePort_ = tellsSourcePort_ ? static_cast<std::uint16_t>(read_if_there(registers::streamSourcePort)) : 0;
}

std::uint32_t camera::settle_packet_size() {
  return stream_.find_packet_size(options_.streamPktSize,
                                  [this](std::uint32_t size) { return fire_test_packet(size); });
}

// The size that the camera made of the one it was asked for; 0 when it does not send such a packet.
std::uint32_t camera::fire_test_packet(std::uint32_t size) {
  namespace bits = gige_protocol::packet_size;
  try {
    write_register(registers::streamPacketSize,
                   packet_size_flags() | bits::fireTestPacket | bits::doNotFragment | size);
    features_->registers_changed(registers::streamPacketSize, 4);
    return read_register(registers::streamPacketSize) & bits::sizeMask;
  } catch (const GenICam::TimeoutException&) {
    throw;
  } catch (const GenICam::GenericException&) {
    return 0;
  }
}

GEV_STATUS camera::start(std::uint32_t numFrames) {
  const std::scoped_lock lock(mutex_);
  if (acquiring_) {
    return GEVLIB_ERROR_TRANSFER_ACTIVE;
  }
  if (numFrames == 0) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  if (monitoring_) {
    return GEVLIB_ERROR_ACCESS_DENIED;
  }
  if (link_->lost() || !write_packet_delay()) {
    return failure();
  }
  commandsBefore_ = channel_.commands();
  prepare_stream();
  stream_.open(numFrames == UINT32_MAX ? UINT64_MAX : numFrames);
  acquiring_ = true;
  try {
    start_acquisition();
  } catch (...) {
    stop_acquisition();
    throw;
  }
  return GEVLIB_OK;
}

void camera::start_acquisition() {
  gev::feature* const mode = features_->find("AcquisitionMode");
  if (mode != nullptr) {
    if (const auto* continuous = gev::find_entry(mode->entries(), "Continuous")) {
      write_if_present("AcquisitionMode", continuous->number);
    }
  }
  write_if_present("TLParamsLocked", std::int64_t{1});
  if (!features_->execute("AcquisitionStart")) {
    gev::raise<GenICam::RuntimeException>("AcquisitionStart: the camera has no such command");
  }
}

// As far as the camera still takes it. One that is lost is not told: that would only wait for its answer.
void camera::stop_acquisition() {
  stream_.close();
  acquiring_ = false;
  try {
    if (!link_->lost()) {
      features_->execute("AcquisitionStop");
      write_if_present("TLParamsLocked", std::int64_t{0});
    }
  } catch (const GenICam::GenericException& error) {
    LOG(2, "fail: stopping %s (reason:%s)", serial().c_str(), error.what());
  }
  LOG(4, "stat: commands to %s during the transfer:%" PRIu64, serial().c_str(),
      channel_.commands() - commandsBefore_);
}

GEV_STATUS camera::abort() {
  stream_.close();  // before waiting for the lock
  const std::scoped_lock lock(mutex_);
  if (!acquiring_) {
    return GEVLIB_ERROR_TRANSFER_NOT_ACTIVE;
  }
  stop_acquisition();
  return GEVLIB_OK;
}

GEV_STATUS camera::free() {
  const std::scoped_lock lock(mutex_);
  if (!stream_.prepared()) {
    return GEVLIB_ERROR_TRANSFER_NOT_ACTIVE;
  }
  if (acquiring_) {
    return GEVLIB_ERROR_TRANSFER_ACTIVE;
  }
  stream_.clear();
  return GEVLIB_OK;
}

}  // namespace gige
