// What brings packets from the network to frame assembly.
#ifndef PLATFORM_GIGE_STREAM_PACKET_RECEIVER_H
#define PLATFORM_GIGE_STREAM_PACKET_RECEIVER_H

#include <cstdint>

#include "platform/gige/stream/frame_assembler.h"

namespace gige {

// One thread calls `start`, then `take` and `sleep` in turn, then `stop`. None of them raises.
class packet_receiver {
 public:
  virtual ~packet_receiver() = default;

  // Begins to receive. Packets that arrived earlier are dropped.
  virtual void start() = 0;
  virtual void stop() {}

  // Hands packets that have arrived to the assembler. Returns false while more of them wait, so that the
  // caller does its other work even when packets arrive as fast as they are taken.
  virtual bool take(frame_assembler& into) = 0;
  // Sleeps until it is time to take packets again, until `latest`, or until the descriptor `wake` is
  // readable, whichever comes first. To be called only after `take` has returned true.
  virtual void sleep(frame_assembler& into, moment latest, int wake) = 0;

  // Packets for this stream that the system dropped, since `start`.
  virtual std::uint64_t kernel_drops() const = 0;
};

// The time from now until then, 0 when it has passed, in the form that ppoll takes.
timespec time_until(moment then);

}  // namespace gige

#endif
