// How a stream is doing: what the receiver counts, what the consumer has, what the system granted.
#ifndef PLATFORM_GIGE_STREAM_STREAM_HEALTH_H
#define PLATFORM_GIGE_STREAM_STREAM_HEALTH_H

#include <camera_extension.h>

#include <cstddef>
#include <cstdint>

#include "platform/gige/stream/assembly_counters.h"
#include "platform/gige/stream/snapshot.h"

namespace gige {

// Each group of figures has one writer at a time, which is named with it, and is read on any thread. Nobody
// waits for anybody.
class stream_health {
 public:
  // By whoever sets the stream up.
  void grant(camera_extension_transport transport, std::uint32_t packetBytes, std::uint32_t bufferBytes,
             std::uint32_t frames);
  // What is counted from here on comes on top of what was.
  void carry_over();

  // By the receiving thread: what it has counted since `carry_over`. `foreign` packets are those that did not
  // come as far as assembly.
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
