// Every call of the library, every access to a feature and every frame is an event. This is the one place
// where the journal sees it and scripted faults hit it.
#ifndef PLATFORM_SIM_INTERCEPTION_H
#define PLATFORM_SIM_INTERCEPTION_H

#include <atomic>
#include <string>

#include "platform/sim/fault.h"

namespace sim {

struct event {
  std::string point;   // as faults name it: "GevOpenCamera", "write OffsetX", "frame"
  std::string line;    // of the journal; empty for a frame, which has none
  std::string serial;  // of the camera; empty when there is none
};

// Whether there is a journal or a fault.
extern std::atomic<bool> isIntercepting;
// Writes the journal's line, waits as long as slow faults say, and returns what else happens to the event.
effect intercept_event(const event& what);

// The same, where `describe` makes the event. It is not called when there is neither journal nor fault, so
// that an event costs one atomic load then.
template <class Describe>
effect intercept(Describe describe) {
  return isIntercepting.load(std::memory_order_acquire) ? intercept_event(describe()) : effect();
}

// Ends the waits of slow faults at the camera with that serial number: a call fails with ABORTED, an access
// raises TimeoutException.
void cancel_slow_events(const std::string& serial);

}  // namespace sim

#endif
