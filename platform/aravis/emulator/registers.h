// The registers of an emulated camera: where they are, and reading and writing them.
#ifndef PLATFORM_ARAVIS_EMULATOR_REGISTERS_H
#define PLATFORM_ARAVIS_EMULATOR_REGISTERS_H

#include <arv.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace gvcam {

using register_address = std::uint32_t;

// Registers of GigE Vision, as far as they are needed here.
namespace bootstrap {
constexpr register_address macHigh = 0x0008;
constexpr register_address macLow = 0x000C;
constexpr register_address manufacturer = 0x0048;  // 32 bytes of text, as are model and version
constexpr register_address model = 0x0068;
constexpr register_address version = 0x0088;
constexpr register_address serial = 0x00D8;  // 16 bytes of text
constexpr register_address controlPrivilege = 0x0A00;
constexpr register_address packetSize = 0x0D04;  // in the low half
}  // namespace bootstrap

// Registers that the emulator of the Aravis library itself looks at: what it sends is the size that they
// say, as often as they say.
namespace emulator {
constexpr register_address width = ARV_FAKE_CAMERA_REGISTER_WIDTH;
constexpr register_address height = ARV_FAKE_CAMERA_REGISTER_HEIGHT;
constexpr register_address offsetX = ARV_FAKE_CAMERA_REGISTER_X_OFFSET;
constexpr register_address offsetY = ARV_FAKE_CAMERA_REGISTER_Y_OFFSET;
constexpr register_address sensorWidth = ARV_FAKE_CAMERA_REGISTER_SENSOR_WIDTH;
constexpr register_address sensorHeight = ARV_FAKE_CAMERA_REGISTER_SENSOR_HEIGHT;
constexpr register_address pixelFormat = ARV_FAKE_CAMERA_REGISTER_PIXEL_FORMAT;
constexpr register_address acquisition = ARV_FAKE_CAMERA_REGISTER_ACQUISITION;  // 1 while frames are sent
constexpr register_address triggerSource = ARV_FAKE_CAMERA_REGISTER_TRIGGER_SOURCE;
}  // namespace emulator

// Registers of our own, in the manufacturer's range: u32, or f64 where it says so. Several values for one
// name lie one after the other, in the order of the selector's entries. gvcam.xml names the same addresses.
namespace own {
constexpr register_address exposureTimeUs = 0xA000;        // f64
constexpr register_address acquisitionFrameRate = 0xA008;  // f64, Hz
constexpr register_address gammaCorrection = 0xA010;       // f64
constexpr register_address gainSelector = 0xA018;
constexpr register_address lutMode = 0xA01C;
constexpr register_address lutType = 0xA020;
constexpr register_address autoBrightnessMode = 0xA024;
constexpr register_address chunkModeActive = 0xA028;
constexpr register_address chunkSelector = 0xA02C;
constexpr register_address temperatureSelector = 0xA030;
constexpr register_address reverseX = 0xA034;
constexpr register_address reverseY = 0xA038;
constexpr register_address lineSelector = 0xA03C;
constexpr register_address gain = 0xA040;         // f64, of SensorAll and DigitalAll
constexpr register_address chunkEnable = 0xA060;  // of ten chunks
constexpr register_address lineSource = 0xA0A0;   // of four lines, as all that follow
constexpr register_address lineInverter = 0xA0B0;
constexpr register_address pulseDelayUs = 0xA0C0;
constexpr register_address pulseDurationUs = 0xA0D0;
constexpr register_address settingsEnd = 0xA0E0;
constexpr register_address temperature = 0xA0E0;  // f64, degrees Celsius, of Internal and Mainboard; measured
}  // namespace own

// A view of a camera's registers; the camera must outlive it. Registers are words in memory that the
// camera's thread writes for its clients; other threads see each of them sooner or later.
class registers {
 public:
  explicit registers(ArvFakeCamera* camera) : camera_(camera) {}

  std::uint32_t word(register_address at) const;
  double number(register_address at) const;
  void set_word(register_address at, std::uint32_t value);
  void set_number(register_address at, double value);
  // Fills the register's `size` bytes with the text, as much of it as fits with a zero at the end.
  void set_text(register_address at, std::size_t size, std::string_view text);

  // All registers but what is measured, and putting them back.
  std::vector<std::uint8_t> snapshot() const;
  void restore(const std::vector<std::uint8_t>& snapshot);

 private:
  ArvFakeCamera* camera_;
};

}  // namespace gvcam

#endif
