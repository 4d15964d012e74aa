// The settings of the next frame, as the registers have them: exposure, payload and stream.
#ifndef PLATFORM_GVCAM_FRAME_SETTINGS_H
#define PLATFORM_GVCAM_FRAME_SETTINGS_H

#include <array>
#include <bitset>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "platform/gige_protocol/gvsp.h"
#include "platform/gvcam/control_server.h"
#include "platform/gvcam/registers.h"
#include "platform/picture/picture.h"

namespace gvcam {

// The chunks behind the image, in the order of ChunkSelector's entries and of the payload.
struct chunk_kind {
  std::uint32_t id;    // in the chunk's tag
  std::uint32_t size;  // bytes, without the tag
};
constexpr std::array chunkKinds = {
    chunk_kind{0x1000, 4},  // OffsetX, as all numbers big endian
    chunk_kind{0x1001, 4},  // OffsetY
    chunk_kind{0x1002, 4},  // Width
    chunk_kind{0x1003, 4},  // Height
    chunk_kind{0x1004, 4},  // PixelFormat
    chunk_kind{0x1005, 8},  // Timestamp
    chunk_kind{0x1006, 8},  // ExposureTime, f64
    chunk_kind{0x1007, 8},  // Gain, f64, that of SensorAll
    chunk_kind{0x1008, 4},  // LineStatusAll, which is 0
    chunk_kind{0x1009, 8},  // FrameID
};
constexpr std::uint32_t imageChunkId = 0x0001;  // the image is the first chunk
constexpr std::uint32_t chunkTagSize = 8;       // bytes; id and size, behind the chunk's data

struct frame_settings {
  picture::picture_settings picture;  // without the members that depend on the frame's number
  double sensorGain = 1;
  std::uint32_t pixelFormat = 0;
  std::chrono::nanoseconds interval{};  // from frame to frame when free running
  bool isTriggered = false;             // a frame for each software trigger

  // payload_type::image without chunks.
  gige_protocol::payload_type payload = gige_protocol::payload_type::image;
  std::bitset<chunkKinds.size()> chunks;

  gige_protocol::id_mode ids = gige_protocol::id_mode::standard;
  endpoint destination;  // port 0: the stream is closed
  std::size_t packetSize = 0;
  bool mayFragment = true;
  std::chrono::nanoseconds packetDelay{};  // GevSCPD
  bool wantsStatusCodes2 = false;          // the client understands the status codes of GigE Vision 2.0

  bool has_chunks() const { return payload != gige_protocol::payload_type::image; }
  std::chrono::nanoseconds exposure() const {
    return std::chrono::nanoseconds(static_cast<std::int64_t>(picture.exposureUs * 1e3));
  }
  std::size_t image_size() const;    // bytes
  std::size_t payload_size() const;  // the image and all chunks with their tags
};

frame_settings read_settings(const register_memory& memory);

}  // namespace gvcam

#endif
