// One camera as the host drives it.
#ifndef SRC_GEV_DEVICE_H
#define SRC_GEV_DEVICE_H

#include <mediagrabber/device.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "src/camera/gev_camera.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// Orders the steps of set-up and acquisition; all camera work is the connection's. See device_like for the
/// operations, their threads and lifetimes.
class device final : public device_like {
 public:
  /// Takes the connection over and configures the camera from `config`. unsupported_error for a null table;
  /// internal_error, after level-1 lines, when the camera can't be configured.
  device(device_handler_like* host, table_like* config, std::shared_ptr<camera_api> connection);

  std::int32_t run(cam_stream_handler_like* stream) override;
  void collectStats(void (*callback)(void* context, const char* json), void* context) override;
  void destroy() override;

 private:
  struct acquisition;
  class transfer;

  ~device() = default;

  void readTickFrequency();
  void setup(bool restart, table_like* config);
  void setupCamSweepGamma(table_like* config, bool restart, bool* frameStopped);
  void stopForChange(bool restart, bool* frameStopped);

  std::int32_t run2();
  std::int32_t takeFrame(acquisition& run, caller where);
  GEV_BUFFER_OBJECT* waitForFrame(acquisition& run);
  void announceFrame();
  std::uint64_t nextTimestampUs(const acquisition& run, std::uint64_t nowUs) const;
  std::int32_t takePendingSignal(caller where);
  std::int32_t firstFrameLagUs(const acquisition& run, const GEV_BUFFER_OBJECT& frame, std::uint64_t nowUs);
  void handOver(const acquisition& run, const GEV_BUFFER_OBJECT& frame);
  void applyPendingSweep(caller where);

  device_handler_like* handler;  // the host's
  std::shared_ptr<camera_api> camera;
  std::uint32_t timestampOffsetUs = 5;               // added to every frame time estimate
  std::uint32_t tickFrequencyHz = 0;                 // of the camera's timestamp counter
  std::atomic<float> sensorTempC = kNoSensorTempC;   // the only state that two threads share
  cam_stream_handler_like* streamHandler = nullptr;  // the host's, of the last run

  static_assert(std::atomic<float>::is_always_lock_free);
};

/// Connects to the camera that `config` names and makes it a device, the caller's until `destroy`. Never
/// null; lets the exceptions of CameraApi__Create and of the constructor pass, with the camera closed.
device* Device__Create(device_handler_like* handler, table_like* config);

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
