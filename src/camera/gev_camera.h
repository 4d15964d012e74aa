// The connection to one camera.
#ifndef SRC_CAMERA_GEV_CAMERA_H
#define SRC_CAMERA_GEV_CAMERA_H

#include <gevapi.h>
#include <mediagrabber/property.h>

#include <memory>

#include "core/table.h"
#include "src/camera/gev_exposure.h"
#include "src/camera/gev_fps.h"
#include "src/camera/gev_gain.h"
#include "src/camera/gev_gamma.h"
#include "src/camera/gev_sensor.h"
#include "src/camera/param_provider.h"
#include "src/gev_irbox.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// An open camera's handle; closes it at the latest when it goes out of scope, so that a connection that
/// fails half-way leaves nothing open.
class camera_handle {
 public:
  camera_handle() = default;
  ~camera_handle() { close(); }
  camera_handle(const camera_handle&) = delete;
  camera_handle& operator=(const camera_handle&) = delete;

  /// True when the camera was opened and gave a handle.
  bool open(GEV_DEVICE_INTERFACE* device);
  /// Closes the camera if it is open; a refusal is ignored.
  void close();
  GEV_CAMERA_HANDLE get() const { return handle_; }

 private:
  GEV_CAMERA_HANDLE handle_ = nullptr;
};

/// What `getSensorTempC` answers when there is no reading; below absolute zero.
inline constexpr float kNoSensorTempC = -321.0F;

/// Opens a camera and configures it when constructed, closes it when destroyed. Owns the feature controls and
/// the IR box, which keep it as their param_provider_like; therefore neither copied nor moved. Holds no lock:
/// one thread at a time. Every operation lets the node map's exceptions pass unless it says otherwise.
class camera_api : public param_provider_like {
 public:
  /// Opens the camera that `device` describes, which need not outlive the call, and configures it from
  /// `config`. internal_error, after a level-1 line, when the camera can't be opened; lets the exceptions of
  /// the controls and of the IR box pass. After an exception the camera is closed.
  camera_api(GEV_DEVICE_INTERFACE* device, table_like* config);
  /// Closes the camera. Neither stops nor frees a transfer: the device has done that.
  ~camera_api() override;
  camera_api(const camera_api&) = delete;
  camera_api& operator=(const camera_api&) = delete;

  GenApi::CNodeMapRef* getDevParams() override { return nodeMap; }

  /// Drives the IR outputs from `config`; see gev_irbox::setup.
  void setup(table_like* config) { irBox.setup(config); }

  /// Sets the stream options; a refusal is logged and tolerated. The packet size is that of
  /// MISC_STREAM_PACKET_SIZE_BYTES_MAX.
  void setupStream(const table<property, table_like>& config);
  /// Sets the pixel format of VS_ACQ_FRAME_FORMAT. params_error, unsupported_error or internal_error, after a
  /// level-1 line, when the row is absent, the format unknown, or refused by the camera.
  void setupPixelFormat(const table<property, table_like>& config);
  /// Start a transfer without end, and abort it. False, after a log line, when the camera library refuses;
  /// never raise.
  bool startGrabber() noexcept;
  bool stopGrabber() noexcept;

  /// Lets every frame carry gain, exposure time and timestamp as chunk data. unsupported_error, after a
  /// level-1 line and with nothing written, when the camera has no chunk mode.
  void setupCamChunks();
  /// Switches the automatic brightness off. internal_error, after a log line, when the camera has none.
  void setBrightnessMode();
  /// The sensor's temperature in degrees Celsius, kNoSensorTempC when the camera has none or a read of it
  /// fails. Logs nothing. May move the camera's "DeviceTemperatureSelector"; lets a refusal of that pass.
  float getSensorTempC() const;

  camera_handle handle;
  GenApi::CNodeMapRef* nodeMap = nullptr;  ///< the camera library's; valid while the camera is open
  gev_irbox irBox;
  exposure_api exposure;
  fps_api fps;
  gain_api gain;
  gamma_api gamma;
  sensor_api sensor;

 private:
  camera_api* open(GEV_DEVICE_INTERFACE* device, caller where = caller::here());
};

/// Connects to the camera whose serial number is in DEV_SERIAL of `config`. unsupported_error for a null
/// table; params_error without the row, not_found_error without the camera, internal_error or the exception
/// of a control when it can't be set up: all logged. Never empty.
std::shared_ptr<camera_api> CameraApi__Create(table_like* config);

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
