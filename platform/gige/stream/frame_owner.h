// What frame assembly needs of its owner: memory for frames, a receiver of frames, and requests to the
// camera.
#ifndef PLATFORM_GIGE_STREAM_FRAME_OWNER_H
#define PLATFORM_GIGE_STREAM_FRAME_OWNER_H

#include <chrono>
#include <cstdint>

namespace gige {

// A time on the owner's clock.
using moment = std::chrono::steady_clock::time_point;

enum class frame_outcome : std::uint8_t {
  whole,
  incomplete,  // a packet of it never came
  refused,     // of a type, geometry or size that was not set up, or contradicting itself
  dropped,     // no memory was lent for it
};

// Why a frame was refused: "height, found 1023, expected 1024".
struct frame_refusal {
  const char* what = nullptr;  // a literal, as "height" or "JPEG image"; nullptr: not refused
  std::uint64_t found = 0;
  std::uint64_t expected = 0;
};

// A frame as it ended.
struct ended_frame {
  frame_outcome outcome = frame_outcome::incomplete;
  std::uint64_t id = 0;           // block id
  std::uint8_t* place = nullptr;  // the memory that was lent for it; nullptr where there was none
  std::uint64_t timestamp = 0;    // ticks of the camera's clock; 0 where the leader did not come
  std::uint64_t bytes = 0;        // of a whole frame: valid bytes of the payload, image first
  moment lastPacket{};            // when the last of its packets was accepted
  frame_refusal refusal{};        // of a refused frame
};

// Packets `first` to `last` of one frame, both included.
struct packet_range {
  std::uint64_t blockId = 0;
  std::uint32_t first = 0;
  std::uint32_t last = 0;

  friend bool operator==(const packet_range&, const packet_range&) = default;
};

// The assembler calls these from within its own functions, on the same thread. They call nothing of the
// assembler and raise nothing.
class frame_owner {
 public:
  // Lends memory for a frame, assembly_setup::payloadBytes of it. nullptr when there is none: the frame is
  // then followed to its end and dropped. Asked for up to one frame ahead.
  virtual std::uint8_t* lend() = 0;

  // Takes back memory that no frame has used.
  virtual void take_back(std::uint8_t* place) = 0;

  // A frame ended. Called in the order of ids; its memory comes back with it.
  virtual void end(const ended_frame& frame) = 0;

  // Requests these packets of the camera again.
  virtual void request(const packet_range& packets) = 0;

 protected:
  ~frame_owner() = default;
};

}  // namespace gige

#endif
