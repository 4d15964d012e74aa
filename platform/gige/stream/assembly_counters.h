// What frame assembly counts.
#ifndef PLATFORM_GIGE_STREAM_ASSEMBLY_COUNTERS_H
#define PLATFORM_GIGE_STREAM_ASSEMBLY_COUNTERS_H

#include <cstdint>

namespace gige {

// The part of camera_extension_health_record that assembly knows, with the meaning given there. Packets
// that the system turns away or drops are counted elsewhere.
struct assembly_counters {
  std::uint64_t framesWhole = 0;
  std::uint64_t framesIncomplete = 0;
  std::uint64_t framesMissing = 0;
  std::uint64_t framesRefused = 0;
  std::uint64_t framesDropped = 0;

  std::uint64_t packetsReceived = 0;
  std::uint64_t packetsLost = 0;  // not of refused frames: how many packets they have is not known
  std::uint64_t packetsRequested = 0;
  std::uint64_t packetsReceivedAgain = 0;
  std::uint64_t packetsDuplicate = 0;  // or after the end of their frame
  std::uint64_t packetsForeign = 0;    // of no frame of this stream, or no stream packets at all

  friend bool operator==(const assembly_counters&, const assembly_counters&) = default;
};

}  // namespace gige

#endif
