// What frame assembly counts.
#ifndef PLATFORM_GIGE_STREAM_ASSEMBLY_COUNTERS_H
#define PLATFORM_GIGE_STREAM_ASSEMBLY_COUNTERS_H

#include <cstdint>

namespace gige {

// The part of camera_extension_health_record that assembly knows, with the meaning given there. What is
// turned away before it comes to assembly, and what the kernel drops, is counted elsewhere.
struct assembly_counters {
  std::uint64_t framesWhole = 0;
  std::uint64_t framesIncomplete = 0;
  std::uint64_t framesMissing = 0;
  std::uint64_t framesRefused = 0;
  std::uint64_t framesDropped = 0;

  std::uint64_t packetsReceived = 0;
  std::uint64_t packetsLost = 0;  // none of refused frames: what they are made of is not known
  std::uint64_t packetsRequested = 0;
  std::uint64_t packetsReceivedAgain = 0;
  std::uint64_t packetsDuplicate = 0;  // with those that came after their frame's end
  std::uint64_t packetsForeign = 0;    // of no frame of this stream, or no stream packets at all

  friend bool operator==(const assembly_counters&, const assembly_counters&) = default;
};

}  // namespace gige

#endif
