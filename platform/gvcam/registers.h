// The memory of an emulated camera: its registers, their values, and which of them can be written.
#ifndef PLATFORM_GVCAM_REGISTERS_H
#define PLATFORM_GVCAM_REGISTERS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/gige_protocol/bytes.h"
#include "platform/gige_protocol/registers.h"
#include "platform/gige_protocol/status.h"

namespace gvcam {

using register_address = std::uint32_t;

// The registers of features, in the manufacturer's space: u32, or f64 where the comment says so. A feature
// with a selector has a register for each entry, in the order of the entries. gvcam.xml has the same
// addresses. Features that a client reads for each frame come first, so that one command reads them all.
namespace features {
constexpr register_address gain = 0xA000;                  // f64, of SensorAll and DigitalAll
constexpr register_address exposureTimeUs = 0xA010;        // f64
constexpr register_address temperature = 0xA018;           // f64, degrees Celsius, of Internal and Mainboard
constexpr register_address acquisitionFrameRate = 0xA028;  // f64, Hz
constexpr register_address gammaCorrection = 0xA030;       // f64
constexpr register_address gainSelector = 0xA040;
constexpr register_address temperatureSelector = 0xA044;
constexpr register_address autoBrightnessMode = 0xA048;
constexpr register_address lutMode = 0xA04C;
constexpr register_address lutType = 0xA050;
constexpr register_address reverseX = 0xA054;
constexpr register_address reverseY = 0xA058;
constexpr register_address sensorWidth = 0xA060;
constexpr register_address sensorHeight = 0xA064;
constexpr register_address pixelFormat = 0xA068;
constexpr register_address offsetX = 0xA06C;
constexpr register_address offsetY = 0xA070;
constexpr register_address width = 0xA074;
constexpr register_address height = 0xA078;
constexpr register_address payloadSize = 0xA07C;  // bytes of a frame, its chunks included
constexpr register_address acquisitionMode = 0xA080;
constexpr register_address acquisition = 0xA084;  // 1 while frames are sent
constexpr register_address triggerMode = 0xA088;
constexpr register_address triggerSource = 0xA08C;
constexpr register_address triggerSoftware = 0xA090;
constexpr register_address chunkModeActive = 0xA0A0;
constexpr register_address chunkSelector = 0xA0A4;
constexpr register_address chunkEnable = 0xA0B0;  // of ten chunks
constexpr register_address lineSelector = 0xA0DC;
constexpr register_address lineSource = 0xA0E0;  // of four lines, as all that follow
constexpr register_address lineInverter = 0xA0F0;
constexpr register_address pulseDelayUs = 0xA100;
constexpr register_address pulseDurationUs = 0xA110;
}  // namespace features

constexpr register_address wordSize = 4;
constexpr register_address numberSize = 8;

constexpr std::uint32_t lutTypeGamma = 1;  // GammaCorrection in lutType

// Where the description begins; it ends with the memory.
constexpr register_address descriptionAddress = 0x0001'0000;

// Memory, and the rules of access to it. Not for several threads at once.
class register_memory {
 public:
  // All registers are 0, except for the first URL, which is that of the description. `name` is the name of
  // its file, at most 255 characters.
  register_memory(std::string_view name, std::string_view description);

  // Access of a client, in whole words. INVALID_ADDRESS where there is no register, WRITE_PROTECT for one
  // that is read only, ACCESS_DENIED for one that cannot be written while frames are sent.
  gige_protocol::status read(register_address from, std::span<std::uint8_t> to) const;
  gige_protocol::status may_write(register_address at) const;

  // Access of the camera itself, without rules. There must be a register at the address.
  std::uint32_t word(register_address at) const;
  double number(register_address at) const;
  void set_word(register_address at, std::uint32_t value);
  void set_number(register_address at, double value);
  // Fills the register's `size` bytes with the text, cut to leave a terminating zero.
  void set_text(register_address at, std::size_t size, std::string_view text);
  // The bytes of a register, valid until the memory is written.
  gige_protocol::byte_view bytes(register_address at, std::size_t size) const;

  // Copies all registers that a client can write, except for the user-defined name.
  void copy_settings(const register_memory& from);

  // Whether frames are sent.
  bool is_acquiring() const { return word(features::acquisition) != 0; }

 private:
  std::vector<std::uint8_t> memory_;
};

}  // namespace gvcam

#endif
