#include "platform/sim/gate.h"

#include <gevapi.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>

#include "platform/gev/exceptions.h"
#include "platform/gev/value.h"
#include "platform/sim/clock.h"
#include "platform/sim/feature_table.h"
#include "platform/sim/sim.h"
#include "platform/sim/words.h"

namespace sim {

std::atomic<bool> observed{false};

namespace {

struct fault {
  std::string point;
  effect what;
  std::uint64_t first = 1;
  std::uint64_t times = std::numeric_limits<std::uint64_t>::max();
  std::string serial;
  std::uint64_t passes = 0;

  bool hit_by(const passage& passing) {
    if (passing.point != point || (!serial.empty() && serial != passing.serial)) {
      return false;
    }
    ++passes;
    return passes >= first && passes - first < times;
  }
};

// ---- Reading faults

enum point_kind : unsigned {
  anyCall = 1,
  handingOut = 2,  // a call that hands out a handle, a node map or a frame
  nodeMap = 4,
  featureAccess = 8,
  frame = 16
};

struct effect_row {
  const char* name;
  effect_kind kind;
  unsigned points;
  bool numbered;
};

constexpr std::array effects = {
    effect_row{"status", effect_kind::status, anyCall, true},
    effect_row{"null", effect_kind::null, handingOut, false},
    effect_row{"slow", effect_kind::slow, anyCall | featureAccess, true},
    effect_row{"empty", effect_kind::empty, nodeMap | frame, false},
    effect_row{"access", effect_kind::access, featureAccess, false},
    effect_row{"range", effect_kind::range, featureAccess, false},
    effect_row{"argument", effect_kind::argument, featureAccess, false},
    effect_row{"logical", effect_kind::logical, featureAccess, false},
    effect_row{"timeout", effect_kind::timeout, featureAccess, false},
    effect_row{"runtime", effect_kind::runtime, featureAccess, false},
    effect_row{"std", effect_kind::standard, featureAccess, false},
    effect_row{"memory", effect_kind::memory, featureAccess, false},
    effect_row{"lost", effect_kind::lost, frame, false},
    effect_row{"bad", effect_kind::bad, frame, true},
    effect_row{"silent", effect_kind::silent, frame, false},
};

unsigned call_kind(const std::string& name) {
  if (name == "GevGetFeatureNodeMap") {
    return anyCall | handingOut | nodeMap;
  }
  return name == "GevOpenCamera" || name == "GevWaitForNextFrame" ? anyCall | handingOut : anyCall;
}

bool is_feature(const std::string& operation, const std::string& name) {
  const auto dot = name.find('.');
  const feature_row* row = find_row(name.substr(0, dot));
  if (row == nullptr || dot == std::string::npos) {
    return row != nullptr;
  }
  return operation == "access" && gev::find_entry(row->entries, name.substr(dot + 1)) != nullptr;
}

unsigned kind_of_point(const std::string& point) {
  const auto words = split(point, " ");
  if (words.size() == 2) {
    one_of("fault: access", words[0], {"access", "read", "write", "min", "max", "inc"});
    if (!is_feature(words[0], words[1])) {
      throw std::invalid_argument("fault: '" + point + "': unknown feature or entry '" + words[1] + "'");
    }
    return featureAccess;
  }
  if (point == "frame") {
    return frame;
  }
  const auto& calls = call_names();
  if (std::find(calls.begin(), calls.end(), point) == calls.end()) {
    throw std::invalid_argument("fault: unknown point '" + point +
                                "', known are accesses like 'write OffsetX', frame, " +
                                listed(calls, [](const std::string& name) { return name; }));
  }
  return call_kind(point);
}

const effect_row& effect_at(const std::string& name, unsigned points) {
  const auto happensThere = [=](const effect_row& row) { return (row.points & points) != 0; };
  const auto found = std::find_if(effects.begin(), effects.end(), [&](const effect_row& row) {
    return happensThere(row) && name == row.name;
  });
  if (found == effects.end()) {
    std::vector<effect_row> possible;
    std::copy_if(effects.begin(), effects.end(), std::back_inserter(possible), happensThere);
    throw std::invalid_argument("fault: '" + name + "' cannot happen there, possible are " +
                                listed(possible, [](const effect_row& row) { return row.name; }));
  }
  return *found;
}

// What follows the word for WHAT: its number, if it has one.
std::int64_t parse_number(const effect_row& row, const std::string& text) {
  constexpr std::int64_t most = INT32_MAX;
  return to_int(std::string("fault: ") + row.name, text, row.kind == effect_kind::slow ? 0 : -most - 1, most);
}

fault parse_fault(const std::string& text) {
  const auto colon = text.find(':');
  if (colon == std::string::npos) {
    throw std::invalid_argument("fault: '" + text + "' is not of the form 'POINT: WHAT @FIRST xTIMES'");
  }
  fault parsed;
  parsed.point = trimmed(std::string_view(text).substr(0, colon));
  auto words = split(text.substr(colon + 1), " \t");
  words.resize(std::max<std::size_t>(words.size(), 2));  // a missing word is an empty one
  const effect_row& row = effect_at(words[0], kind_of_point(parsed.point));
  parsed.what = {row.kind, row.numbered ? parse_number(row, words[1]) : 0};
  for (std::size_t at = row.numbered ? 2 : 1; at < words.size() && !words[at].empty(); ++at) {
    const std::string& word = words[at];
    if (word[0] != '@' && word[0] != 'x') {
      throw std::invalid_argument("fault: '" + word + "' is neither @FIRST nor xTIMES");
    }
    auto& count = word[0] == '@' ? parsed.first : parsed.times;
    count = static_cast<std::uint64_t>(to_int("fault: " + word.substr(0, 1), word.substr(1), 1, INT64_MAX));
  }
  return parsed;
}

std::vector<fault> parse_faults(const std::string& text) {
  std::vector<fault> parsed;
  for (const std::string& each : statements(text)) {
    parsed.push_back(parse_fault(each));
  }
  return parsed;
}

// ---- What is scripted and listened to

// The listener may call back into the library, so its lock is recursive and separate from that of the
// faults.
struct observer {
  std::recursive_mutex journalMutex;
  std::function<void(const std::string&)> listener;
  std::mutex faultMutex;
  std::vector<fault> faults;
  std::mutex cancelMutex;
  std::condition_variable cancelled;
  std::map<std::string, std::uint64_t> cancels;  // how often each camera was

  void note() {
    const std::scoped_lock both(journalMutex, faultMutex);
    observed.store(listener != nullptr || !faults.empty(), std::memory_order_release);
  }

  void write(const std::string& line) {
    const std::scoped_lock lock(journalMutex);
    if (listener && !line.empty()) {
      listener(line);
    }
  }

  // Every fault at the point counts the passage; the first that hits and is not merely slow decides.
  effect disturb(const passage& what, std::uint64_t& slowUs) {
    const std::scoped_lock lock(faultMutex);
    effect decided;
    for (fault& each : faults) {
      if (!each.hit_by(what)) {
        continue;
      }
      if (each.what.kind == effect_kind::slow) {
        slowUs += static_cast<std::uint64_t>(each.what.number);
      } else if (decided.kind == effect_kind::none) {
        decided = each.what;
      }
    }
    return decided;
  }

  // Takes so much time; false when the camera was cancelled meanwhile.
  bool take_time(const std::string& serial, std::uint64_t us) {
    std::unique_lock lock(cancelMutex);
    const std::uint64_t before = cancels[serial];
    return !cancelled.wait_for(lock, std::chrono::microseconds(us),
                               [&] { return cancels[serial] != before; });
  }
};

// Never destroyed: a host may still use cameras while the process ends.
observer& the_observer() {
  static observer& instance = *new observer;
  return instance;
}

}  // namespace

effect pass_observed(const passage& what) {
  the_observer().write(what.line);
  std::uint64_t slowUs = 0;
  const effect decided = the_observer().disturb(what, slowUs);
  if (slowUs != 0 && is_clock_driven()) {
    advance_clock(slowUs);
  } else if (slowUs != 0 && !the_observer().take_time(what.serial, slowUs)) {
    const bool isAccess = kind_of_point(what.point) == featureAccess;
    return {isAccess ? effect_kind::timeout : effect_kind::status, GEVLIB_ERROR_ABORTED};
  }
  return decided;
}

void cancel_passages(const std::string& serial) {
  {
    const std::scoped_lock lock(the_observer().cancelMutex);
    ++the_observer().cancels[serial];
  }
  the_observer().cancelled.notify_all();
}

void raise_effect(const effect& what) {
  const std::string description = "injected fault";
  switch (what.kind) {
    case effect_kind::access:
      gev::raise<GenICam::AccessException>(description);
    case effect_kind::range:
      gev::raise<GenICam::OutOfRangeException>(description);
    case effect_kind::argument:
      gev::raise<GenICam::InvalidArgumentException>(description);
    case effect_kind::logical:
      gev::raise<GenICam::LogicalErrorException>(description);
    case effect_kind::timeout:
      gev::raise<GenICam::TimeoutException>(description);
    case effect_kind::runtime:
      gev::raise<GenICam::RuntimeException>(description);
    case effect_kind::standard:
      throw std::runtime_error(description);
    case effect_kind::memory:
      throw std::bad_alloc();
    default:
      break;
  }
}

const std::vector<std::string>& call_names() {
  static const std::vector<std::string> names = {"GevApiInitialize",
                                                 "GevApiUninitialize",
                                                 "_CloseSocketAPI",
                                                 "GevGetCameraList",
                                                 "GevOpenCamera",
                                                 "GevCloseCamera",
                                                 "GevGetCameraInterfaceOptions",
                                                 "GevSetCameraInterfaceOptions",
                                                 "GevGetFeatureNodeMap",
                                                 "GevGetFeatureValue",
                                                 "GevSetFeatureValue",
                                                 "GevStartTransfer",
                                                 "GevAbortTransfer",
                                                 "GevFreeTransfer",
                                                 "GevWaitForNextFrame",
                                                 "GevReleaseFrame"};
  return names;
}

void check_faults(const std::string& faults) {
  parse_faults(faults);
}

void inject(const std::string& faults, const std::string& serial) {
  auto parsed = parse_faults(faults);
  {
    const std::scoped_lock lock(the_observer().faultMutex);
    for (fault& each : parsed) {
      each.serial = serial;
      the_observer().faults.push_back(std::move(each));
    }
  }
  the_observer().note();
}

void clear_faults() {
  {
    const std::scoped_lock lock(the_observer().faultMutex);
    the_observer().faults.clear();
  }
  the_observer().note();
}

void journal(std::function<void(const std::string&)> listener) {
  {
    const std::scoped_lock lock(the_observer().journalMutex);
    the_observer().listener = std::move(listener);
  }
  the_observer().note();
}

}  // namespace sim
