// The one place through which every call of the library, every access to a feature and every frame
// passes: it writes the journal and applies the scripted faults. Costs one atomic load when there is
// neither.
#ifndef PLATFORM_SIM_GATE_H
#define PLATFORM_SIM_GATE_H

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

// What a fault does to the call, access or frame that it hits; `slow` happens inside of the gate.
enum class effect_kind {
  none,
  status,
  null,
  slow,
  empty,
  access,
  range,
  argument,
  logical,
  timeout,
  runtime,
  standard,
  memory,
  lost,
  bad,
  silent
};

struct effect {
  effect_kind kind = effect_kind::none;
  std::int64_t number = 0;  // of `status` and `bad`: the status; of `slow`: microseconds
};

// What passes: the point as faults name it ("GevOpenCamera", "write OffsetX", "frame"), its journal line
// (none for a frame) and the serial number of the camera (empty when there is none).
struct passage {
  std::string point;
  std::string line;
  std::string serial;
};

// Whether anybody observes or disturbs, set by everything that changes it.
extern std::atomic<bool> observed;
effect pass_observed(const passage& what);

// `describe` makes the passage and is only called when somebody wants to know.
template <class Describe>
effect pass(Describe describe) {
  return observed.load(std::memory_order_acquire) ? pass_observed(describe()) : effect();
}

// Ends slow passages of the camera with that serial number that are under way: a call fails with ABORTED, an
// access raises TimeoutException.
void cancel_passages(const std::string& serial);

// Raises the exception that this effect stands for, if it stands for one.
void raise_effect(const effect& what);

// The names of the calls, in the order of gevapi.h.
const std::vector<std::string>& call_names();

// Raises std::invalid_argument for what `inject` would not take.
void check_faults(const std::string& faults);

}  // namespace sim

#endif
