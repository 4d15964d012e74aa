#include "src/camera/gev_camera.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace Zavik::Support::MediaGrabber::Gigev2 {
namespace {

using config_view = table<property, table_like>;

// Jumbo frames end at 9180 bytes; a size beyond them becomes the one that passes every network.
constexpr std::int64_t kPacketSizeEnd = 9181;
constexpr std::uint32_t kPacketSizeDefault = 1500;

constexpr std::uint32_t kHeartbeatTimeoutMs = 5000;
constexpr std::uint32_t kPacketDelayUs = 10;
constexpr std::uint32_t kFramesBuffered = 4;
constexpr std::uint32_t kStreamMemoryMax = 64 * 1024 * 1024;
constexpr std::uint32_t kFrameTimeoutMs = 1001;

constexpr std::int32_t kFrameFormatMono8 = 1;
constexpr std::uint32_t kFramesWithoutEnd = 0xFFFFFFFF;

bool hasEntry(GenApi::IEnumeration& enumeration, const char* name) {
  GenApi::IEnumEntry* entry = enumeration.GetEntryByName(name);
  return entry != nullptr && entry->GetAccessMode() != GenApi::NI;
}

bool isSelected(GenApi::IEnumeration& enumeration, const char* name) {
  GenApi::IEnumEntry* entry = enumeration.GetCurrentEntry(false, false);
  return entry != nullptr && entry->ToString(false, false) == name;
}

// The result of `read`; nothing when the camera does not answer.
template <class Read>
auto readIfAnswered(Read read) -> std::optional<decltype(read())> {
  try {
    return read();
  } catch (const GenICam::GenericException&) {
    return std::nullopt;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

template <class Interface>
Interface& requireChunkNode(const GenApi::CNodeMapRef& params, const char* name,
                            caller where = caller::here()) {
  auto* node = findNode<Interface>(params, name);
  if (node == nullptr) {
    LOG_FROM(where, 1, "fail: CNodeMapRef::_GetNode (name:%s)", name);
    throw unsupported_error();
  }
  return *node;
}

std::string requireSerial(table_like* config, caller where = caller::here()) {
  const config_view view(config);
  std::string serial;
  if (!view.getString(property::DEV_SERIAL, 0, serial)) {
    LOG_FROM(where, 1, "fail: property_table_t::getString (property:DEV_SERIAL)");
    throw params_error();
  }
  return serial;
}

std::shared_ptr<camera_api> connect(const std::string& serial, table_like* config,
                                    caller where = caller::here()) {
  std::array<GEV_DEVICE_INTERFACE, kCamerasMax> cameras{};
  int count = 0;
  GevGetCameraList(cameras.data(), kCamerasMax, &count);
  auto* const end = cameras.data() + std::clamp(count, 0, kCamerasMax);
  auto* const found =
      std::find_if(cameras.data(), end, [&](const auto& camera) { return serial == camera.serial; });
  if (found == end) {
    LOG_FROM(where, 1, "fail: not_found_error");
    throw not_found_error();
  }
  auto connection = std::make_shared<camera_api>(found, config);
  LOG_FROM(where, 4, "done");
  return connection;
}

}  // namespace

std::shared_ptr<camera_api> CameraApi__Create(table_like* config) {
  LOG(5, "exec");
  const std::string serial = requireSerial(config);
  const caller here = caller::here();
  try {
    return connect(serial, config, here);
  } catch (const GenICam::GenericException&) {
    throw internal_error();
  } catch (const not_found_error&) {
    throw;
  } catch (const generic_error&) {
    LOG(1, "fail");
    throw;
  } catch (const std::exception& error) {
    LOG(1, "fail: exception <%s>", error.what());
    throw internal_error();
  }
}

bool camera_handle::open(GEV_DEVICE_INTERFACE* device) {
  static_assert(GevControlMode == 2);
  if (GevOpenCamera(device, GevControlMode, &handle_) != 0) {
    handle_ = nullptr;
  }
  return handle_ != nullptr;
}

void camera_handle::close() {
  if (handle_ != nullptr) {
    GevCloseCamera(&handle_);
    handle_ = nullptr;
  }
}

camera_api::camera_api(GEV_DEVICE_INTERFACE* device, table_like* config)
    : irBox(this, config),
      exposure{open(device), config_view(config)},  // braces: arguments are evaluated in this order
      fps(this, config_view(config)),
      gain(this, config_view(config)),
      gamma(this, config_view(config)),
      sensor(this, config_view(config)) {
  setup(config);
  LOG(4, "done");
}

// Stands between the IR box, which is built without the camera, and the controls, which need it open.
camera_api* camera_api::open(GEV_DEVICE_INTERFACE* device, caller where) {
  LOG_FROM(where, 4, "exec");
  if (!handle.open(device)) {
    LOG_FROM(where, 1, "fail: GevOpenCamera");
    throw internal_error();
  }
  nodeMap = static_cast<GenApi::CNodeMapRef*>(GevGetFeatureNodeMap(handle.get()));
  if (nodeMap == nullptr) {
    LOG_FROM(where, 1, "fail: GevGetFeatureNodeMap");
    throw internal_error();
  }
  return this;
}

camera_api::~camera_api() {
  handle.close();
}

void camera_api::setupStream(const config_view& config) {
  std::int64_t packetSizeMax = 0;
  if (!config.getInt64(property::MISC_STREAM_PACKET_SIZE_BYTES_MAX, 0, packetSizeMax)) {
    LOG(4, "fail: getInt64 (param:MISC_STREAM_PACKET_SIZE_BYTES_MAX)");
  }
  const std::uint32_t packetSize =
      packetSizeMax < kPacketSizeEnd ? static_cast<std::uint32_t>(packetSizeMax) : kPacketSizeDefault;
  GEV_CAMERA_OPTIONS options{};
  GevGetCameraInterfaceOptions(handle.get(), &options);
  options.heartbeat_timeout_ms = kHeartbeatTimeoutMs;
  options.streamPktSize = packetSize;
  options.streamPktDelay = kPacketDelayUs;
  options.streamNumFramesBuffered = kFramesBuffered;
  options.streamMemoryLimitMax = kStreamMemoryMax;
  options.streamFrame_timeout_ms = kFrameTimeoutMs;
  if (GevSetCameraInterfaceOptions(handle.get(), &options) != 0) {
    LOG(2, "Can't configure packet options (packet size %u)", packetSize);
  }
}

void camera_api::setupPixelFormat(const config_view& config) {
  std::int64_t code = 0;
  if (!config.getInt64(property::VS_ACQ_FRAME_FORMAT, 0, code)) {
    LOG(1, "fail: table::getInt64 (row:VS_ACQ_FRAME_FORMAT)");
    throw params_error();
  }
  const auto frameFormat = static_cast<std::int32_t>(code);
  if (frameFormat != kFrameFormatMono8) {
    LOG(1, "fail: unsupported (frame-format:%d)", frameFormat);
    throw unsupported_error();
  }
  std::uint32_t pixelFormat = fmtMono8;
  if (GevSetFeatureValue(handle.get(), "PixelFormat", sizeof pixelFormat, &pixelFormat) != 0) {
    LOG(1, "fail: GevSetFeatureValue (gev-pixel-format:fmtMono8)");
    throw internal_error();
  }
}

bool camera_api::startGrabber() noexcept {
  LOG(5, "exec");
  if (handle.get() == nullptr) {
    LOG(1, "fail: handle:null");
    return false;
  }
  const GEV_STATUS status = GevStartTransfer(handle.get(), kFramesWithoutEnd);
  if (status != 0) {
    LOG(1, "fail: GevStartTransfer (answer:0x%x)", static_cast<unsigned>(status));
    return false;
  }
  LOG(4, "done");
  return true;
}

bool camera_api::stopGrabber() noexcept {
  LOG(5, "exec");
  if (handle.get() == nullptr) {
    LOG(1, "fail: handle:null");
    return false;
  }
  const GEV_STATUS status = GevAbortTransfer(handle.get());
  if (status != 0) {
    LOG(2, "fail: GevAbortTransfer (answer:0x%x)", static_cast<unsigned>(status));
    return false;
  }
  LOG(4, "done");
  return true;
}

void camera_api::setupCamChunks() {
  const GenApi::CNodeMapRef& params = requireNodeMap(this);
  auto& active = requireChunkNode<GenApi::IBoolean>(params, "ChunkModeActive");
  auto& enable = requireChunkNode<GenApi::IBoolean>(params, "ChunkEnable");
  auto& selector = requireChunkNode<GenApi::IEnumeration>(params, "ChunkSelector");
  active.SetValue(true, true);
  for (const char* chunk : {"Gain", "ExposureTime", "Timestamp"}) {
    if (!hasEntry(selector, chunk)) {
      continue;
    }
    selector.FromString(chunk, true);
    // Which chunks can be enabled is known only while they are selected.
    const GenApi::EAccessMode access = enable.GetAccessMode();
    if (access == GenApi::WO || access == GenApi::RW) {
      enable.SetValue(true, true);
    }
  }
}

void camera_api::setBrightnessMode() {
  auto* mode = findNode<GenApi::IEnumeration>(requireNodeMap(this), "autoBrightnessMode");
  if (mode == nullptr) {
    LOG(2, "fail: INodeMap::GetNode (name:autoBrightnessMode)");
    throw internal_error();
  }
  mode->FromString("Off", true);
}

// A flaky sensor must not end a run: a read that fails is no reading. A refused write is a fault of the
// set-up, and passes.
float camera_api::getSensorTempC() const {
  constexpr const char* kInternal = "Internal";
  auto* selector = findNode<GenApi::IEnumeration>(*nodeMap, "DeviceTemperatureSelector");
  if (selector == nullptr ||
      !readIfAnswered([&] { return hasEntry(*selector, kInternal); }).value_or(false)) {
    return kNoSensorTempC;
  }
  const std::optional<bool> selected = readIfAnswered([&] { return isSelected(*selector, kInternal); });
  if (!selected) {
    return kNoSensorTempC;
  }
  if (!*selected) {
    selector->FromString(kInternal, true);
  }
  auto* temperature = findNode<GenApi::IFloat>(*nodeMap, "DeviceTemperature");
  if (temperature == nullptr) {
    return kNoSensorTempC;
  }
  return readIfAnswered([&] { return static_cast<float>(temperature->GetValue(false, false)); })
      .value_or(kNoSensorTempC);
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
