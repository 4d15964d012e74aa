#include "platform/gvcam/frame_settings.h"

#include <algorithm>
#include <cmath>

#include "platform/picture/infrared.h"

namespace gvcam {
namespace {

using gige_protocol::id_mode;
using gige_protocol::payload_type;
using picture::picture_settings;
using picture::tone_curve;
namespace standard = gige_protocol::registers;

constexpr std::uint32_t off = 0;
constexpr std::uint32_t lineFollowsExposure = 1;
constexpr register_address firstInfraredLine = 2;  // Line3 and Line4
constexpr double slowestHz = 0.1;

// A client can write any bits into a register of 8 bytes, also those that are not a number.
double clamped(double number, double min, double max) {
  return number >= min ? std::min(number, max) : min;
}

double exposure_us(const register_memory& memory) {
  return clamped(memory.number(features::exposureTimeUs), 0, 1e9);
}

double interval_us(const register_memory& memory) {
  const double rate = clamped(memory.number(features::acquisitionFrameRate), slowestHz, 1e6);
  return std::max(1e6 / rate, exposure_us(memory));
}

picture::output_line read_line(const register_memory& memory, register_address line) {
  const register_address at = line * wordSize;
  return {.followsExposure = memory.word(features::lineSource + at) == lineFollowsExposure,
          .isInverted = memory.word(features::lineInverter + at) != off,
          .pulseDelayUs = static_cast<double>(memory.word(features::pulseDelayUs + at)),
          .pulseDurationUs = static_cast<double>(memory.word(features::pulseDurationUs + at))};
}

tone_curve tone(const register_memory& memory) {
  return memory.word(features::lutMode) == off            ? tone_curve::linear
         : memory.word(features::lutType) == lutTypeGamma ? tone_curve::gamma
                                                          : tone_curve::negative;
}

picture_settings read_picture(const register_memory& memory) {
  picture_settings settings;
  settings.exposureUs = exposure_us(memory);
  settings.gain = clamped(memory.number(features::gain), 0, 1e6) *
                  clamped(memory.number(features::gain + numberSize), 0, 1e6);
  settings.infraredUs = {picture::lit_us(read_line(memory, firstInfraredLine), settings.exposureUs),
                         picture::lit_us(read_line(memory, firstInfraredLine + 1), settings.exposureUs)};
  settings.tone = tone(memory);
  settings.gamma = memory.number(features::gammaCorrection);
  settings.offsetX = memory.word(features::offsetX);
  settings.offsetY = memory.word(features::offsetY);
  settings.width = memory.word(features::width);
  settings.height = memory.word(features::height);
  settings.reverseX = memory.word(features::reverseX) != off;
  settings.reverseY = memory.word(features::reverseY) != off;
  return settings;
}

void read_chunks(const register_memory& memory, frame_settings& settings) {
  if (memory.word(features::chunkModeActive) == off) {
    return;
  }
  const bool isExtended =
      (memory.word(standard::streamConfiguration) & gige_protocol::stream_options::extendedChunks) != 0;
  settings.payload = isExtended ? payload_type::image_with_chunks : payload_type::chunk_data;
  for (std::size_t kind = 0; kind < chunkKinds.size(); ++kind) {
    settings.chunks[kind] =
        memory.word(features::chunkEnable + static_cast<register_address>(kind) * wordSize) != off;
  }
}

void read_stream(const register_memory& memory, frame_settings& settings) {
  const bool isExtended =
      (memory.word(standard::gvspConfiguration) & gige_protocol::gvsp_configuration::extendedIds) != 0;
  const std::uint32_t size = memory.word(standard::streamPacketSize);
  settings.ids = isExtended ? id_mode::extended : id_mode::standard;
  settings.destination = {memory.word(standard::streamDestination),
                          static_cast<std::uint16_t>(memory.word(standard::streamPort))};
  settings.packetSize = size & gige_protocol::packet_size::sizeMask;
  settings.mayFragment = (size & gige_protocol::packet_size::doNotFragment) == 0;
  settings.packetDelay = std::chrono::nanoseconds(memory.word(standard::streamPacketDelay));
  settings.wantsStatusCodes2 = (memory.word(standard::gvcpConfiguration) &
                                gige_protocol::gvcp_configuration::extendedStatusCodes2) != 0;
}

}  // namespace

std::size_t frame_settings::image_size() const {
  return picture.width * picture.height * (pixelFormat == picture::pixelFormatMono10 ? 2 : 1);
}

std::size_t frame_settings::payload_size() const {
  std::size_t size = image_size() + (has_chunks() ? chunkTagSize : 0);
  for (std::size_t kind = 0; kind < chunkKinds.size(); ++kind) {
    size += chunks[kind] ? chunkKinds[kind].size + chunkTagSize : 0;
  }
  return size;
}

frame_settings read_settings(const register_memory& memory) {
  frame_settings settings;
  settings.picture = read_picture(memory);
  settings.sensorGain = memory.number(features::gain);
  settings.pixelFormat = memory.word(features::pixelFormat);
  settings.interval = std::chrono::nanoseconds(std::llround(interval_us(memory) * 1e3));
  settings.isTriggered = memory.word(features::triggerMode) != off;
  read_chunks(memory, settings);
  read_stream(memory, settings);
  return settings;
}

}  // namespace gvcam
