// The figures of a stream: what the receiver counts, the consumer's last frame, what the system granted.
#ifndef PLATFORM_GIGE_STREAM_STREAM_HEALTH_H
#define PLATFORM_GIGE_STREAM_STREAM_HEALTH_H

#include <camera_extension.h>

#include <cstddef>
#include <cstdint>

#include "platform/gige/stream/assembly_counters.h"
#include "platform/gige/stream/snapshot.h"

namespace gige {

// Each group of figures has one writer at a time, as noted with it, and may be read on any thread. No call
// blocks.
class stream_health {
 public:
  // By the thread that prepares the stream.
  void grant(camera_extension_transport transport, std::uint32_t packetBytes, std::uint32_t bufferBytes,
             std::uint32_t frames);
  // Keeps the figures so far. What `count` is called with from now on is added to them.
  void carry_over();

  // By the receiving thread: its figures since `carry_over`. `foreign` are the packets that the system turned
  // away.
  void count(const assembly_counters& assembled, std::uint64_t foreign, std::uint64_t kernelDrops);

  // By the consumer: the frame that it gets. `timeNs` is on the camera's clock.
  void hand_over(std::uint64_t id, std::uint64_t timeNs) { frame_.write({id, timeNs}); }

  // Sets every field but `size`.
  void read(camera_extension_health_record& record) const;
  // Frames that came, whole or not.
  std::uint64_t arrivals() const;

 private:
  static constexpr std::size_t counterCount = 12;

  snapshot<counterCount> counters_;
  snapshot<counterCount>::figures before_{};  // written and read by the writers of the counters
  snapshot<2> frame_;
  snapshot<4> granted_;
};

}  // namespace gige

#endif
