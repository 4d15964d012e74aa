// What brings packets from the network to frame assembly.
#ifndef PLATFORM_GIGE_STREAM_PACKET_RECEIVER_H
#define PLATFORM_GIGE_STREAM_PACKET_RECEIVER_H

#include <cstdint>

#include "platform/gige/stream/frame_assembler.h"

namespace gige {

// Driven by one thread: `start`, then `take` and `sleep` in turn, then `stop`. None of them raises.
class packet_receiver {
 public:
  virtual ~packet_receiver() = default;

  // Begins to receive; what came before is dropped.
  virtual void start() = 0;
  virtual void stop() {}

  // Hands packets that have come to the assembler. False when more of them wait: packets that come as fast as
  // they are taken keep nobody from other work.
  virtual bool take(frame_assembler& into) = 0;
  // Sleeps until it is time to take packets again, `latest` at the latest, or `wake`, a descriptor, is
  // readable. Only when `take` left nothing.
  virtual void sleep(frame_assembler& into, moment latest, int wake) = 0;

  // Packets for this stream that the system dropped, since `start`.
  virtual std::uint64_t kernel_drops() const = 0;
};

// How long a sleep until then lasts, nothing when it is over; as ppoll takes it.
timespec time_until(moment then);

}  // namespace gige

#endif
