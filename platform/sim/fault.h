// Scripted faults: their language (see `inject` in sim.h) and what they do.
#ifndef PLATFORM_SIM_FAULT_H
#define PLATFORM_SIM_FAULT_H

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace sim {

// What a fault does to the call, access or frame that it hits, by its name in sim.h.
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

struct fault {
  std::string point;  // "GevOpenCamera", "write OffsetX", "frame"
  effect what;
  std::uint64_t first = 1;  // the first event at its point that it hits, counted from 1
  std::uint64_t times = std::numeric_limits<std::uint64_t>::max();  // how many events it hits
};

// Raises std::invalid_argument, which names the word that is wrong.
std::vector<fault> parse_faults(const std::string& text);

// Raises the exception that the effect stands for, if it stands for one.
void raise_effect(const effect& what);

}  // namespace sim

#endif
