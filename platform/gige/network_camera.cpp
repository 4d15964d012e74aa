#include "platform/gige/network_camera.h"

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
#include "platform/gige_protocol/registers.h"

namespace gige {
namespace {

namespace protocol = gige_protocol;
namespace registers = gige_protocol::registers;
using std::chrono::milliseconds;

access_mode mode_of(GevAccessMode mode) {
  return mode == GevMonitorMode     ? access_mode::monitor
         : mode == GevExclusiveMode ? access_mode::exclusive
                                    : access_mode::control;
}

patience patience_of(const GEV_CAMERA_OPTIONS& options) {
  return {.answer = milliseconds(options.command_timeout_ms), .retries = options.numRetries};
}

// A camera that has never answered is most likely gone, not busy.
patience patience_at_first() {
  return {.answer = milliseconds(200), .retries = 2};
}

}  // namespace

// ---- Opening and closing

network_camera::network_camera(std::shared_ptr<connection_state> connection, const endpoints& ends,
                               GevAccessMode mode, const environment& settings)
    : connection_(std::move(connection)),
      environment_(settings),
      monitoring_(mode == GevMonitorMode),
      options_(gev::default_options()),
      channel_(connection_, ends.own, ends.camera, patience_at_first()),
      control_(connection_, channel_, mode_of(mode)),
      port_(channel_),
      features_(read_features()),
      registers_(*features_, serial()),
      streamChannel_(registers_),
      nodes_(*this),
      reference_(&nodes_) {
  features_->fill(nodes_);
  read_camera_options();
  connection_->on_loss([this] { stream_.lose(); });
  LOG(4, "done: camera %s at %s opened from %s", serial().c_str(), address_text(ends.camera).c_str(),
      address_text(channel_.own_address()).c_str());
}

network_camera::~network_camera() {
  end_waits();
  try {
    abort();
  } catch (const GenICam::GenericException& error) {
    LOG(2, "fail: stopping %s (reason:%s)", serial().c_str(), error.what());
  } catch (const std::exception& error) {
    LOG(2, "fail: stopping %s (reason:%s)", serial().c_str(), error.what());
  }
  stream_.clear();
  connection_->on_loss({});
}

void network_camera::end_waits() {
  connection_->hurry(closingBudget);
  stream_.close();
}

std::unique_ptr<camera_features> network_camera::read_features() {
  channel_.set_patience(patience_of(options_));
  const std::array urls{read_url(registers::firstUrl), read_url(registers::secondUrl)};
  const std::string xml = load_description(urls, port_,
                                           {.camera = channel_.camera_address(),
                                            .directory = environment_.descriptionDirectory,
                                            .cancelled = connection_->wake_descriptor()});
  return std::make_unique<camera_features>(xml, port_, camera_features::setup{.monitoring = monitoring_});
}

std::string network_camera::read_url(std::uint32_t address) {
  std::array<std::uint8_t, registers::urlSize> bytes{};
  port_.read(address, bytes);
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return std::string(text.substr(0, text.find('\0')));
}

// The camera's own heartbeat time-out and packet size are the options that it begins with.
void network_camera::read_camera_options() {
  streamChannel_.read_capabilities();
  resends_ =
      (registers_.read_if_present(registers::gvcpCapability) & protocol::gvcp_capability::packetResend) != 0;
  if (const auto heartbeat = registers_.read_if_present(registers::heartbeatTimeout); heartbeat != 0) {
    options_.heartbeat_timeout_ms = heartbeat;
  }
  if (const auto size =
          registers_.read_if_present(registers::streamPacketSize) & protocol::packet_size::sizeMask;
      size != 0) {
    options_.streamPktSize = size;
  }
}

std::vector<std::unique_ptr<gev::extension_feature>> network_camera::list_features() {
  const std::scoped_lock lock(mutex_);
  std::vector<std::unique_ptr<gev::extension_feature>> listed;
  for (gev::feature* const each : features_->all()) {
    listed.push_back(std::make_unique<gev::extension_feature>(*each));
  }
  return listed;
}

// ---- Options

GEV_STATUS network_camera::read_options(GEV_CAMERA_OPTIONS* to) {
  const std::scoped_lock lock(mutex_);
  return gev::read_options(options_, to);
}

GEV_STATUS network_camera::write_options(const GEV_CAMERA_OPTIONS* wanted) {
  const std::scoped_lock lock(mutex_);
  if (const GEV_STATUS status = gev::replace_options(options_, wanted); status != GEVLIB_OK) {
    return status;
  }
  streamChannel_.forget_options();
  channel_.set_patience(patience_of(options_));
  return monitoring_ || send_options() ? GEVLIB_OK : failure();
}

// While frames are transferred the packet options wait for the next start.
bool network_camera::send_options() {
  return registers_.try_to_write("heartbeat time-out", registers::heartbeatTimeout,
                                 options_.heartbeat_timeout_ms) &&
         (acquiring_ || (streamChannel_.write_packet_size(options_.streamPktSize) &&
                         streamChannel_.write_packet_delay(options_.streamPktDelay)));
}

GEV_STATUS network_camera::failure() const {
  return connection_->is_lost() ? GEVLIB_ERROR_DEVICE_LOST : GEVLIB_ERROR_GENERIC;
}

// ---- Transfer

std::uint32_t network_camera::read_size(const char* name) {
  gev::feature* const feature = features_->find(name);
  const std::int64_t size = feature == nullptr ? 0 : gev::to_integer(gev::read(*feature, false, false));
  if (size <= 0 || size > UINT32_MAX) {
    gev::raise<GenICam::RuntimeException>(std::string(name) +
                                          ": the camera does not say how large a frame is");
  }
  return static_cast<std::uint32_t>(size);
}

std::uint32_t network_camera::read_pixel_format() {
  gev::feature* const format = features_->find("PixelFormat");
  return format == nullptr ? fmtMono8
                           : static_cast<std::uint32_t>(gev::to_integer(gev::read(*format, false, false)));
}

stream_setup network_camera::read_stream_setup() {
  return {.camera = serial(),
          .ownAddress = channel_.own_address(),
          .cameraAddress = channel_.camera_address(),
          .sourcePort = streamChannel_.source_port(),
          .transport = environment_.transport,
          .socketBufferBytes = options_.streamSocketBufferSize != 0 ? options_.streamSocketBufferSize
                                                                    : environment_.socketBufferBytes,
          .payloadBytes = read_size("PayloadSize"),
          .width = read_size("Width"),
          .height = read_size("Height"),
          .pixelFormat = read_pixel_format(),
          .packetBytes = streamChannel_.packet_size(),
          .extendedIds = streamChannel_.has_extended_ids(),
          .ticksPerSecond = streamChannel_.ticks_per_second(),
          .cameraResends = resends_,
          .maxPacketResends = options_.streamMaxPacketResends,
          .packetResendMs = options_.streamPktResend_timeout_ms,
          .frameTimeoutMs = options_.streamFrame_timeout_ms,
          .framesBuffered = options_.streamNumFramesBuffered,
          .memoryLimitBytes = options_.streamMemoryLimitMax,
          .threadAffinity = options_.streamThreadAffinity,
          .threadPriority = options_.streamThreadPriority};
}

// Test packets need the stream's port, so the stream is prepared before and after the packet size is known.
// After an abort everything is as it was, and this costs no command.
void network_camera::prepare_stream() {
  stream_.prepare(read_stream_setup());
  streamChannel_.set_destination(channel_.own_address(), stream_.port());
  streamChannel_.settle_packet_size([this] { return find_packet_size(); });
  stream_.prepare(read_stream_setup());
}

std::uint32_t network_camera::find_packet_size() {
  return stream_.find_packet_size(
      options_.streamPktSize, [this](std::uint32_t bytes) { return streamChannel_.fire_test_packet(bytes); });
}

GEV_STATUS network_camera::start(std::uint32_t numFrames) {
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
  if (connection_->is_lost() || !streamChannel_.write_packet_delay(options_.streamPktDelay)) {
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

void network_camera::write_if_present(const char* name, const gev::value& to) {
  gev::feature* const feature = features_->find(name);
  if (feature != nullptr && feature->access() == GenApi::RW && feature->get(false) != to) {
    feature->set(to);
  }
}

void network_camera::select_continuous_mode() {
  constexpr const char* name = "AcquisitionMode";
  gev::feature* const mode = features_->find(name);
  const auto* const continuous = mode == nullptr ? nullptr : gev::find_entry(mode->entries(), "Continuous");
  if (continuous != nullptr) {
    write_if_present(name, continuous->number);
  }
}

void network_camera::start_acquisition() {
  select_continuous_mode();
  write_if_present("TLParamsLocked", std::int64_t{1});
  if (!features_->execute("AcquisitionStart")) {
    gev::raise<GenICam::RuntimeException>("AcquisitionStart: the camera has no such command");
  }
}

// A lost camera gets no commands: each would wait for an answer.
void network_camera::stop_acquisition() {
  stream_.close();
  acquiring_ = false;
  try {
    if (!connection_->is_lost()) {
      features_->execute("AcquisitionStop");
      write_if_present("TLParamsLocked", std::int64_t{0});
    }
  } catch (const GenICam::GenericException& error) {
    LOG(2, "fail: stopping %s (reason:%s)", serial().c_str(), error.what());
  }
  LOG(4, "stat: commands to %s during the transfer:%" PRIu64, serial().c_str(),
      channel_.commands() - commandsBefore_);
}

GEV_STATUS network_camera::abort() {
  stream_.close();  // a wait that holds up the lock's owner ends with it
  const std::scoped_lock lock(mutex_);
  if (!acquiring_) {
    return GEVLIB_ERROR_TRANSFER_NOT_ACTIVE;
  }
  stop_acquisition();
  return GEVLIB_OK;
}

GEV_STATUS network_camera::free() {
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
