#include "platform/sim/interception.h"

#include <gevapi.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/sim/clock.h"
#include "platform/sim/sim.h"

namespace sim {

std::atomic<bool> isIntercepting{false};

namespace {

// A fault with the events that it has seen.
struct active_fault {
  fault scripted;
  std::string serial;  // of the camera that it is for; empty: for all
  std::uint64_t events = 0;

  bool hits(const event& what) {
    if (what.point != scripted.point || (!serial.empty() && serial != what.serial)) {
      return false;
    }
    ++events;
    return events >= scripted.first && events - scripted.first < scripted.times;
  }
};

bool is_access(const event& what) {
  return what.point.find(' ') != std::string::npos;
}

// Journal and faults have a lock each. That of the journal is recursive, because a listener may use cameras.
struct interceptor {
  std::recursive_mutex journalMutex;
  std::function<void(const std::string&)> listener;
  std::mutex faultMutex;
  std::vector<active_fault> faults;
  std::mutex cancelMutex;
  std::condition_variable cancelled;
  std::map<std::string, std::uint64_t> cancels;  // how often each camera was cancelled

  void update() {
    const std::scoped_lock both(journalMutex, faultMutex);
    isIntercepting.store(listener != nullptr || !faults.empty(), std::memory_order_release);
  }

  void write(const std::string& line) {
    const std::scoped_lock lock(journalMutex);
    if (listener && !line.empty()) {
      listener(line);
    }
  }

  // Every fault at the point counts the event. All slow ones that hit add up; the first other one decides.
  effect apply_faults(const event& what, std::uint64_t& slowUs) {
    const std::scoped_lock lock(faultMutex);
    effect decided;
    for (active_fault& each : faults) {
      if (!each.hits(what)) {
        continue;
      }
      if (each.scripted.what.kind == effect_kind::slow) {
        slowUs += static_cast<std::uint64_t>(each.scripted.what.number);
      } else if (decided.kind == effect_kind::none) {
        decided = each.scripted.what;
      }
    }
    return decided;
  }

  // Takes that long; false when the camera is cancelled before.
  bool sleep(const std::string& serial, std::uint64_t us) {
    std::unique_lock lock(cancelMutex);
    const std::uint64_t before = cancels[serial];
    return !cancelled.wait_for(lock, std::chrono::microseconds(us),
                               [&] { return cancels[serial] != before; });
  }
};

// Never destroyed: a host may use cameras while the process ends.
interceptor& the_interceptor() {
  static interceptor& instance = *new interceptor;
  return instance;
}

}  // namespace

effect intercept_event(const event& what) {
  the_interceptor().write(what.line);
  std::uint64_t slowUs = 0;
  const effect decided = the_interceptor().apply_faults(what, slowUs);
  if (slowUs != 0 && is_clock_driven()) {
    advance_clock(slowUs);
  } else if (slowUs != 0 && !the_interceptor().sleep(what.serial, slowUs)) {
    return {is_access(what) ? effect_kind::timeout : effect_kind::status, GEVLIB_ERROR_ABORTED};
  }
  return decided;
}

void cancel_slow_events(const std::string& serial) {
  {
    const std::scoped_lock lock(the_interceptor().cancelMutex);
    ++the_interceptor().cancels[serial];
  }
  the_interceptor().cancelled.notify_all();
}

// ---- What sim.h offers

void inject(const std::string& faults, const std::string& serial) {
  const std::vector<fault> parsed = parse_faults(faults);
  {
    const std::scoped_lock lock(the_interceptor().faultMutex);
    for (const fault& each : parsed) {
      the_interceptor().faults.push_back({each, serial});
    }
  }
  the_interceptor().update();
}

void clear_faults() {
  {
    const std::scoped_lock lock(the_interceptor().faultMutex);
    the_interceptor().faults.clear();
  }
  the_interceptor().update();
}

void journal(std::function<void(const std::string&)> listener) {
  {
    const std::scoped_lock lock(the_interceptor().journalMutex);
    the_interceptor().listener = std::move(listener);
  }
  the_interceptor().update();
}

}  // namespace sim
