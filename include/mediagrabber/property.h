// The rows of the property table: every item of configuration that the bundle reads.
//
// The numbers are part of the contract between host and bundle. Single items are in column 0; an item that
// begins with PINx_ is in the column of its pin, 0 for the first one. A cell of another type counts as
// absent.
#ifndef MEDIAGRABBER_PROPERTY_H
#define MEDIAGRABBER_PROPERTY_H

#include <cstdint>

namespace Zavik::Support::MediaGrabber {

enum class property : std::uint8_t {
  // Read once, when a device is created. Required unless said otherwise.

  /// string: serial number of the camera, compared byte for byte.
  DEV_SERIAL = 0,
  /// int64: largest stream packet, bytes; 9181 and more becomes 1500. Absent: 0, the camera library's choice.
  MISC_STREAM_PACKET_SIZE_BYTES_MAX = 1,
  /// float: frames per second.
  VS_ACQ_FPS_HZ = 2,
  /// int64: 1, 8-bit monochrome, is the only format.
  VS_ACQ_FRAME_FORMAT = 3,
  /// bool: true turns the image by 180 degrees.
  VS_ACQ_ROTATE180 = 4,
  /// int64: sensor window, offset and size in pixels and lines.
  VS_ACQ_SENSOR_X = 5,
  VS_ACQ_SENSOR_Y = 6,
  VS_ACQ_SENSOR_W = 7,
  VS_ACQ_SENSOR_H = 8,

  // Read when a device is created and from every sweep table.

  /// float: gamma; within 0.001 of 1.0 switches gamma correction off. Absent: gamma stays as it is.
  VS_SWEEP_MANUAL_GAMMA = 9,
  /// float: gain in decibels. Absent: gain stays as it is.
  VS_SWEEP_MANUAL_GAIN_DB = 10,
  /// float: exposure time in microseconds, also the base of the IR pulse length. Required.
  VS_SWEEP_MANUAL_EXPOSURE_USEC = 11,
  /// int64: 0 switches the IR outputs off, anything else lets them follow the exposure. Required.
  VS_SWEEP_MANUAL_IR_LEVEL = 12,

  // IR outputs, read once, when a device is created.

  /// int64: number of IR outputs. Absent, 0 or negative: none, and the rows below are not read. A column is
  /// 8 bits wide: from the 257th output on the columns come round again, and output 256 is read from column
  /// 0.
  PIN_COUNT = 13,
  /// int64: camera output line of the pin: 5 is "Line3", 6 is "Line4". Required for every pin.
  PINx_REF = 14,
  /// Not read by the bundle.
  PINx_RESERVED = 15,
  /// int64: 2 for a pulse as long as the exposure, 3 for PINx_EXPOSURE_RATIO percent of it. Required for
  /// every pin.
  PINx_SOURCE = 16,
  /// int64: 1 for a line that is not inverted, 2 for an inverted one. Required for every pin.
  PINx_INVERTER = 17,
  /// int64: pulse length in percent of the exposure time. Required, and read, where the source is 3.
  PINx_EXPOSURE_RATIO = 18,
};

/// The bundle looks for DEV_SERIAL among this many cameras, the first ones that the camera library lists.
inline constexpr int kCamerasMax = 8;

}  // namespace Zavik::Support::MediaGrabber

#endif
