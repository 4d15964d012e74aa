#include "platform/aravis/camera.h"

#include <algorithm>
#include <cinttypes>
#include <thread>

#include "core/log.h"
#include "platform/aravis/gvcp.h"
#include "platform/aravis/gvcp_client.h"
#include "platform/gev/exceptions.h"
#include "platform/gev/stream_options.h"

namespace gige {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds answerPatience(200);
constexpr int answerAttempts = 3;

constexpr std::uint32_t packetSizeRegister = 0x0d04;  // lower half; flags above
constexpr std::uint32_t packetSizeMask = 0xffff;
constexpr std::uint32_t packetDelayRegister = 0x0d08;  // timestamp ticks
constexpr std::uint32_t packetSizeOfChoice = 1500;     // passes every network

using inet_address = owned<GInetAddress>;

inet_address inet_address_of(std::uint32_t address) {
  return inet_address(g_inet_address_new_from_string(address_text(address).c_str()));
}

// Our own address where the routes lead to the camera.
std::uint32_t address_towards(std::uint32_t camera) {
  return gvcp_client(0, camera).own_address();
}

std::string controller_of(gvcp_client& client) {
  const auto address = client.read(gvcp::controllerAddressRegister, answerPatience, 1);
  const auto port = client.read(gvcp::controllerPortRegister, answerPatience, 1);
  if (address.what != gvcp_client::outcome::value || address.value == 0) {
    return "another client, the camera does not say which";
  }
  return address_text(address.value) + " port " + std::to_string(port.value);
}

// Whether the camera answers and is free for that mode.
GEV_STATUS check_free(gvcp_client client, const std::string& name, GevAccessMode mode) {
  const auto control = client.read(gvcp::controlRegister, answerPatience, answerAttempts);
  if (control.what == gvcp_client::outcome::silent) {
    LOG(1, "fail: camera %s does not answer", name.c_str());
    return GEVLIB_ERROR_DEVICE_NOT_FOUND;
  }
  const bool exclusive =
      control.what == gvcp_client::outcome::refused || (control.value & gvcp::exclusiveControl) != 0;
  const bool held = exclusive || (control.value & gvcp::sharedControl) != 0;
  if (mode == GevMonitorMode ? exclusive : held) {
    LOG(1, "fail: camera %s is controlled by %s", name.c_str(), controller_of(client).c_str());
    return GEVLIB_ERROR_ACCESS_DENIED;
  }
  return GEVLIB_OK;
}

// Aravis takes control by itself while it opens a camera, but does not say when it did not get it.
GEV_STATUS take_control(ArvDevice& device, const std::string& name, GevAccessMode mode) {
  auto* const gigeDevice = ARV_GV_DEVICE(&device);
  glib_error error;
  if (mode == GevMonitorMode) {
    if (arv_gv_device_is_controller(gigeDevice) != 0) {
      arv_gv_device_leave_control(gigeDevice, error.out());
    }
    return GEVLIB_OK;
  }
  const bool taken =
      arv_gv_device_take_control(gigeDevice, error.out()) != 0 &&
      (mode != GevExclusiveMode ||
       arv_device_write_register(&device, gvcp::controlRegister, gvcp::exclusiveControl | gvcp::sharedControl,
                                 error.out()) != 0);
  if (!taken || arv_gv_device_is_controller(gigeDevice) == 0) {
    LOG(1, "fail: camera %s does not give control (%s)", name.c_str(), error.text());
    return GEVLIB_ERROR_ACCESS_DENIED;
  }
  return GEVLIB_OK;
}

void on_control_lost(ArvDevice* /*device*/, void* of) {
  (*static_cast<std::shared_ptr<link>*>(of))->lose("control was taken away, or it does not answer any more");
}

void drop_link(void* of, GClosure* /*closure*/) {
  delete static_cast<std::shared_ptr<link>*>(of);
}

ArvGc* description_for(ArvDevice& device, wire& through) {
  std::size_t size = 0;
  const char* const xml = arv_device_get_genicam_xml(&device, &size);
  ArvGc* const description = arv_gc_new(through.device(), xml, size);
  arv_gc_set_range_check_policy(description, ARV_RANGE_CHECK_POLICY_ENABLE);
  arv_gc_set_access_check_policy(description, ARV_ACCESS_CHECK_POLICY_ENABLE);
  arv_gc_set_register_cache_policy(description, ARV_REGISTER_CACHE_POLICY_DISABLE);
  return description;
}

}  // namespace

// ---- Opening and closing

GEV_STATUS camera::open(const found_camera& which, GevAccessMode mode, const environment& surroundings,
                        std::shared_ptr<camera>& opened) {
  found_camera reached = which;
  const std::uint32_t address = which.record.ipAddr;
  if (reached.interfaceAddress == 0) {
    reached.interfaceAddress = address_towards(address);
  }
  const std::string name = std::string(which.record.serial) + " at " + address_text(address);
  if (const GEV_STATUS status = check_free({reached.interfaceAddress, address}, name, mode);
      status != GEVLIB_OK) {
    return status;
  }
  // Aravis reads descriptions with tables that it sets up at first use without a lock.
  static std::mutex openings;
  const std::scoped_lock one(openings);
  glib_error error;
  owned<ArvDevice> device(arv_gv_device_new(inet_address_of(reached.interfaceAddress).get(),
                                            inet_address_of(address).get(), error.out()));
  if (device == nullptr || error) {
    LOG(1, "fail: camera %s cannot be opened: %s", name.c_str(), error.text());
    return GEVLIB_ERROR_DEVICE_NOT_FOUND;
  }
  if (const GEV_STATUS status = take_control(*device, name, mode); status != GEVLIB_OK) {
    return status;
  }
  opened.reset(new camera(reached, mode, surroundings, std::move(device)));
  LOG(4, "done: camera %s opened from %s", name.c_str(), address_text(reached.interfaceAddress).c_str());
  return GEVLIB_OK;
}

camera::camera(const found_camera& which, GevAccessMode mode, const environment& surroundings,
               owned<ArvDevice> device)
    : link_(std::make_shared<link>(which.record.serial)),
      surroundings_(surroundings),
      ownAddress_(which.interfaceAddress),
      address_(which.record.ipAddr),
      device_(std::move(device)),
      wire_(*device_, *link_),
      description_(description_for(*device_, wire_)),
      graph_(*description_),
      host_{.camera = wire_, .graph = graph_, .monitoring = mode == GevMonitorMode},
      nodes_(*this),
      reference_(&nodes_),
      options_(gev::default_options()),
      stream_(link_) {
  controlLost_ =
      g_signal_connect_data(device_.get(), "control-lost", G_CALLBACK(on_control_lost),
                            new std::shared_ptr<link>(link_), drop_link, static_cast<GConnectFlags>(0));
  make_features();
  glib_error none;
  ticksPerSecond_ = arv_gv_device_get_timestamp_tick_frequency(ARV_GV_DEVICE(device_.get()), none.out());
  read_options();
}

camera::~camera() {
  try {
    close();
  } catch (const std::exception& error) {
    LOG(1, "fail: closing %s (reason:%s)", link_->serial().c_str(), error.what());
  }
}

// Aravis takes seconds to find out.
bool camera::answers() const {
  gvcp_client client(ownAddress_, address_);
  const auto control = client.read(gvcp::controlRegister, answerPatience, answerAttempts);
  return control.what != gvcp_client::outcome::silent;
}

void camera::close() {
  if (!link_->lost() && !answers()) {
    link_->lose("it does not answer");
  }
  abort();
  g_signal_handler_disconnect(device_.get(), controlLost_);
  stream_.clear();
  if (link_->lost()) {
    // Aravis tries for seconds to give back control of a camera that does not answer, and may do so alone.
    std::thread([left = std::move(device_)] {}).detach();
  }
}

// ---- Features

void camera::make_features() {
  for (ArvGcFeatureNode* const node : graph_.nodes()) {
    if (const auto kind = kind_of(node)) {
      features_.push_back(std::make_unique<arv_feature>(node, *kind, host_));
      byName_[features_.back()->name()] = features_.back().get();
      nodes_.add(*features_.back());
    }
  }
  host_.asking = true;
}

gev::feature* camera::find(std::string_view name) {
  const auto found = byName_.find(name);
  return found == byName_.end() ? nullptr : found->second;
}

// Nothing when there is no such feature, or none that can be read.
std::optional<std::int64_t> camera::number(const char* name) {
  gev::feature* const feature = find(name);
  const bool readable =
      feature != nullptr && (feature->access() == GenApi::RO || feature->access() == GenApi::RW);
  return readable ? std::optional(gev::to_integer(feature->get(false))) : std::nullopt;
}

void camera::write_if_present(const char* name, const gev::value& to) {
  gev::feature* const feature = find(name);
  if (feature != nullptr && feature->access() == GenApi::RW && feature->get(false) != to) {
    feature->set(to);
  }
}

// It was written past the nodes.
void camera::register_changed(std::uint32_t address) {
  constexpr std::uint32_t size = 4;
  wire_.forget(address, size);
  graph_.registers_changed(address, size, wire_.advance());
}

// ---- Options

GEV_CAMERA_OPTIONS camera::options() {
  const std::scoped_lock lock(mutex_);
  return options_;
}

// What the camera has; the rest is the library's.
void camera::read_options() {
  if (const std::uint32_t heartbeat = read_register(gvcp::heartbeatTimeoutRegister); heartbeat != 0) {
    options_.heartbeat_timeout_ms = heartbeat;
  }
  if (const std::uint32_t size = read_register(packetSizeRegister) & packetSizeMask; size != 0) {
    options_.streamPktSize = size;
  }
}

GEV_STATUS camera::set_options(const GEV_CAMERA_OPTIONS& wanted) {
  if (!gev::possible(wanted)) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  const std::scoped_lock lock(mutex_);
  options_ = wanted;
  packetOptionsWritten_ = false;
  if (host_.monitoring) {
    return GEVLIB_OK;
  }
  // While frames are transferred the packet options wait for the next start.
  const bool written = write_heartbeat() && (stream_.running() || write_packet_options());
  return written ? GEVLIB_OK : link_->lost() ? GEVLIB_ERROR_DEVICE_LOST : GEVLIB_ERROR_GENERIC;
}

// 0 when it cannot be read. Only writes change the registers that are asked for here, and are noticed.
std::uint32_t camera::read_register(std::uint32_t address) {
  glib_error none;
  std::uint32_t value = 0;
  wire_.trust_since(0);
  arv_device_read_register(wire_.device(), address, &value, none.out());
  return value;
}

bool camera::write_register(const char* what, std::uint32_t address, std::uint32_t value) {
  glib_error error;
  const bool written = arv_device_write_register(wire_.device(), address, value, error.out()) != 0;
  register_changed(address);
  if (!written) {
    LOG(2, "fail: %s of %s (value:%u, reason:%s)", what, link_->serial().c_str(), value, error.text());
  }
  return written;
}

bool camera::write_heartbeat() {
  return write_register("heartbeat time-out", gvcp::heartbeatTimeoutRegister, options_.heartbeat_timeout_ms);
}

bool camera::write_packet_options() {
  if (packetOptionsWritten_) {
    return true;
  }
  const std::uint32_t wanted = options_.streamPktSize == 0 ? packetSizeOfChoice : options_.streamPktSize;
  const std::uint32_t flags = read_register(packetSizeRegister) & ~packetSizeMask;
  const double ticks = options_.streamPktDelay * 1e-6 * static_cast<double>(ticksPerSecond_);
  packetOptionsWritten_ =
      write_register("packet size", packetSizeRegister, flags | wanted) &&
      write_register("packet delay", packetDelayRegister, static_cast<std::uint32_t>(std::min(ticks, 4e9)));
  return packetOptionsWritten_;
}

// ---- Transfer

stream_setup camera::setup_of_transfer() {
  const auto needed = [this](const char* name) {
    const auto found = number(name);
    if (!found || *found <= 0 || *found > UINT32_MAX) {
      gev::raise<GenICam::RuntimeException>(std::string(name) +
                                            ": the camera does not say how large a frame is");
    }
    return static_cast<std::uint32_t>(*found);
  };
  return {.bufferCount = options_.streamNumFramesBuffered,
          .payloadBytes = needed("PayloadSize"),
          .width = needed("Width"),
          .height = needed("Height"),
          .packetBytes = read_register(packetSizeRegister) & packetSizeMask,
          .socketBufferBytes = options_.streamSocketBufferSize != 0 ? options_.streamSocketBufferSize
                                                                    : surroundings_.socketBufferBytes,
          .maxPacketResends = options_.streamMaxPacketResends,
          .packetResendMs = options_.streamPktResend_timeout_ms,
          .frameTimeoutMs = options_.streamFrame_timeout_ms,
          .threadAffinity = options_.streamThreadAffinity,
          .threadPriority = options_.streamThreadPriority,
          .ticksPerSecond = ticksPerSecond_,
          .packetSocket = surroundings_.packetSocket};
}

GEV_STATUS camera::start(std::uint32_t numFrames) {
  const std::scoped_lock lock(mutex_);
  if (stream_.running()) {
    return GEVLIB_ERROR_TRANSFER_ACTIVE;
  }
  if (numFrames == 0) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  if (link_->lost()) {
    return GEVLIB_ERROR_DEVICE_LOST;
  }
  if (!write_packet_options()) {
    return link_->lost() ? GEVLIB_ERROR_DEVICE_LOST : GEVLIB_ERROR_GENERIC;
  }
  stream_setup setup = setup_of_transfer();
  const std::uint32_t possible = options_.streamMemoryLimitMax / setup.payloadBytes;
  if (setup.bufferCount > possible) {
    LOG(1, "fail: %u buffers of %u bytes are more than the %u bytes allowed", setup.bufferCount,
        setup.payloadBytes, options_.streamMemoryLimitMax);
    return GEVLIB_ERROR_NO_MEMORY;
  }
  setup.bufferCount = std::min(setup.bufferCount + 1, possible);  // for the frame that comes in
  watch_.reset();
  if (stream_.prepare(*device_, setup)) {
    register_changed(gvcp::streamPortRegister);  // as a new stream does
    register_changed(gvcp::streamAddressRegister);
  }
  commandsBefore_ = wire_.round_trips();
  stream_.open(numFrames == UINT32_MAX ? UINT64_MAX : numFrames);
  try {
    start_acquisition();
  } catch (...) {
    stop_acquisition();
    throw;
  }
  watch_.emplace(link_, gvcp_client(ownAddress_, address_), stream_.port(),
                 [this] { return stream_.arrivals(); });
  return GEVLIB_OK;
}

bool camera::execute(const char* command) {
  ArvGcNode* const node = arv_gc_get_node(description_.get(), command);
  if (!ARV_IS_GC_COMMAND(node)) {
    return false;
  }
  glib_error error;
  arv_gc_command_execute(ARV_GC_COMMAND(node), error.out());
  graph_.changed(ARV_GC_FEATURE_NODE(node), wire_.advance());
  error.raise_if_set(command);
  return true;
}

void camera::start_acquisition() {
  gev::feature* const mode = find("AcquisitionMode");
  if (mode != nullptr) {
    if (const auto* continuous = gev::find_entry(mode->entries(), "Continuous")) {
      write_if_present("AcquisitionMode", continuous->number);
    }
  }
  write_if_present("TLParamsLocked", std::int64_t{1});
  if (!execute("AcquisitionStart")) {
    gev::raise<GenICam::RuntimeException>("AcquisitionStart: the camera has no such command");
  }
}

// As far as the camera still takes it. One that is lost is not told: that would only wait for its answer.
void camera::stop_acquisition() {
  stream_.close();
  try {
    if (!link_->lost()) {
      execute("AcquisitionStop");
      write_if_present("TLParamsLocked", std::int64_t{0});
    }
  } catch (const GenICam::GenericException& error) {
    LOG(2, "fail: stopping %s (reason:%s)", link_->serial().c_str(), error.what());
  }
  stream_.tell_statistics();
  LOG(4, "stat: commands to %s during the transfer:%" PRIu64, link_->serial().c_str(),
      wire_.round_trips() - commandsBefore_);
}

GEV_STATUS camera::abort() {
  if (!stream_.running()) {
    return GEVLIB_ERROR_TRANSFER_NOT_ACTIVE;
  }
  stream_.close();  // before waiting for the lock
  const std::scoped_lock lock(mutex_);
  watch_.reset();
  stop_acquisition();
  return GEVLIB_OK;
}

GEV_STATUS camera::free() {
  const std::scoped_lock lock(mutex_);
  if (!stream_.prepared()) {
    return GEVLIB_ERROR_TRANSFER_NOT_ACTIVE;
  }
  if (stream_.running()) {
    return GEVLIB_ERROR_TRANSFER_ACTIVE;
  }
  stream_.clear();
  return GEVLIB_OK;
}

}  // namespace gige
