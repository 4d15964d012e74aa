// What host and bundle are to each other: a device that the bundle makes, and the two handlers that the host
// gives it.
//
// All operations are called by virtual slot. Their order is binding; the first one listed is the first
// virtual function (no virtual destructor stands before it), and a host may add operations of its own only
// behind them.
//
// Threads: the bundle calls every operation of a handler on the thread that called `run`, one at a time.
#ifndef MEDIAGRABBER_DEVICE_H
#define MEDIAGRABBER_DEVICE_H

#include <cstddef>
#include <cstdint>

#include "core/table.h"

// The interfaces have no virtual destructor on purpose: objects end by `destroy`, or belong to the host.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace Zavik::Support::MediaGrabber {

/// What `device_handler_like::getPendingSignal` answers. Any other value is ignored for that frame.
enum pending_signal : std::int32_t {
  kPENDING_SIGNAL__NONE = 0,    ///< go on, and ask for a sweep configuration
  kPENDING_SIGNAL__SIGHUP = 1,  ///< end the run, which returns 1
  kPENDING_SIGNAL__SIGTERM = 2  ///< end the run, which returns 2
};

/// What a frame has beside its pixels. 24 bytes, little-endian.
struct cam_frame_info {
  std::uint64_t timestampUs;  ///< estimated time of the frame, microseconds of the realtime clock
  float exposureUs;           ///< exposure time when the frame was handed over, microseconds
  float gainDb;               ///< gain when the frame was handed over, decibels
  std::uint16_t width;        ///< pixels a line
  std::uint16_t height;       ///< lines
  std::uint32_t format;       ///< always 1: 8-bit monochrome, one byte a pixel, row after row
};
static_assert(sizeof(cam_frame_info) == 24 && offsetof(cam_frame_info, exposureUs) == 8 &&
              offsetof(cam_frame_info, gainDb) == 12 && offsetof(cam_frame_info, width) == 16 &&
              offsetof(cam_frame_info, height) == 18 && offsetof(cam_frame_info, format) == 20);

/// Implemented by the host: receives the frames of a run. Must stay valid until `run` returns.
class cam_stream_handler_like {
 public:
  /// Once for every frame that arrives, before anything else; `sensorTempC` is the sensor temperature in
  /// degrees Celsius, -321.0 when there is none.
  virtual void onFrameTick(float sensorTempC) = 0;
  /// Every frame but the first of a run. `info` and the `byteCount` (width x height) bytes at `data` are
  /// valid only during the call: what is to be kept must be copied.
  virtual void onFrame(const cam_frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) = 0;
  /// Every wait, of at most a second, that brought no usable frame, and once when the run ends on a signal.
  virtual void onNoFrame() = 0;

 protected:
  ~cam_stream_handler_like() = default;
};

/// Implemented by the host: given at creation, not owned; must stay valid until the device is destroyed.
class device_handler_like {
 public:
  /// Once for every frame that arrives, after `onFrameTick`.
  virtual void heartbeat() = 0;
  /// A `pending_signal`. Asked once for every frame that arrives, after it was handed over and released; not
  /// asked while none arrive.
  virtual std::int32_t getPendingSignal() = 0;
  /// Asked after every answer kPENDING_SIGNAL__NONE: when new settings wait, writes them into `sweep`, an
  /// empty table of the bundle's, and returns true; they are applied at once. VS_SWEEP_MANUAL_EXPOSURE_USEC
  /// and VS_SWEEP_MANUAL_IR_LEVEL are required, VS_SWEEP_MANUAL_GAIN_DB and VS_SWEEP_MANUAL_GAMMA optional.
  /// The table is gone after this frame unless the host retains it.
  virtual bool tryPopPendingSweepConf(Support::rw_table_like* sweep) = 0;

 protected:
  ~device_handler_like() = default;
};

/// Implemented by the bundle: one camera, opened and configured. Owned by the host from MgBundleCreateDevice
/// until `destroy`.
class device_like {
 public:
  /// Acquires on the calling thread until the host answers with a signal (returns its value, 1 or 2) or
  /// something fails (returns 1; the log says what). A std::exception or node-map exception that a handler
  /// raises ends the run as a failure; one of another type passes through to the caller, and so does a
  /// node-map exception from the `onNoFrame` that follows a signal. The transfer is stopped and freed in
  /// every case.
  virtual std::int32_t run(cam_stream_handler_like* streamHandler) = 0;
  /// Calls `callback(context, json)` once with the statistics as JSON, valid only during the call; does not
  /// call it while no temperature is known. From any thread, at any time before `destroy`.
  virtual void collectStats(void (*callback)(void* context, const char* json), void* context) = 0;
  /// Closes the camera and frees the device. Only after `run` has returned.
  virtual void destroy() = 0;

 protected:
  ~device_like() = default;
};

}  // namespace Zavik::Support::MediaGrabber

#pragma GCC diagnostic pop

#endif
