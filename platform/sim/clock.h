// The clock of all simulated cameras: the monotonic clock, or one that a test drives (see sim.h).
#ifndef PLATFORM_SIM_CLOCK_H
#define PLATFORM_SIM_CLOCK_H

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace sim {

// Back to the monotonic clock.
void release_clock();
bool is_clock_driven();
// Waits until the clock shows `us`, microseconds, or `wake` is notified. A driven clock jumps there at once.
void wait_until(std::condition_variable& wake, std::unique_lock<std::mutex>& lock, std::uint64_t us);

}  // namespace sim

#endif
