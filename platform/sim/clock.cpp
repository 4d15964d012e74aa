#include "platform/sim/clock.h"

#include <atomic>
#include <chrono>

#include "platform/sim/sim.h"

namespace sim {
namespace {

using monotonic = std::chrono::steady_clock;
using std::chrono::microseconds;

std::atomic<bool> driven{false};
std::atomic<std::uint64_t> drivenUs{0};

// Never backwards: another camera may have moved the clock further meanwhile.
void jump_to(std::uint64_t us) {
  std::uint64_t now = drivenUs.load();
  while (now < us && !drivenUs.compare_exchange_weak(now, us)) {
  }
}

}  // namespace

void drive_clock(std::uint64_t nowUs) {
  drivenUs = nowUs;
  driven = true;
}

void advance_clock(std::uint64_t us) {
  drivenUs += us;
}

std::uint64_t clock_us() {
  if (driven.load(std::memory_order_acquire)) {
    return drivenUs.load(std::memory_order_acquire);
  }
  const auto sinceStart = std::chrono::duration_cast<microseconds>(monotonic::now().time_since_epoch());
  return static_cast<std::uint64_t>(sinceStart.count());
}

void release_clock() {
  driven = false;
}

bool is_clock_driven() {
  return driven;
}

void wait_until(std::condition_variable& wake, std::unique_lock<std::mutex>& lock, std::uint64_t us) {
  if (driven) {
    jump_to(us);
  } else {
    wake.wait_until(lock, monotonic::time_point(microseconds(us)));
  }
}

}  // namespace sim
