// The clock of all arrival times and waits.
#ifndef HOST_ACQUIRE_STEADY_TIME_H
#define HOST_ACQUIRE_STEADY_TIME_H

#include <chrono>
#include <cstdint>

namespace host {

/// Microseconds of the monotonic clock.
inline std::uint64_t steady_us() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

}  // namespace host

#endif
