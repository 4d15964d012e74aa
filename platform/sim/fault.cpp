#include "platform/sim/fault.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <new>
#include <stdexcept>

#include "platform/gev/exceptions.h"
#include "platform/gev/value.h"
#include "platform/sim/feature_table.h"
#include "platform/sim/parsing.h"

namespace sim {
namespace {

// Calls of gevapi.h, in its order.
constexpr std::array calls = {"GevApiInitialize",
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

// Kinds of points, as bits.
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
  unsigned points;  // where it can happen
  bool hasNumber;
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
  if (std::find(calls.begin(), calls.end(), point) == calls.end()) {
    throw std::invalid_argument("fault: unknown point '" + point +
                                "', known are accesses like 'write OffsetX', frame, " +
                                listed(calls, [](const char* name) { return name; }));
  }
  return call_kind(point);
}

const effect_row& effect_at(const std::string& name, unsigned points) {
  const auto isPossible = [=](const effect_row& row) { return (row.points & points) != 0; };
  const auto found = std::find_if(effects.begin(), effects.end(),
                                  [&](const effect_row& row) { return isPossible(row) && name == row.name; });
  if (found == effects.end()) {
    std::vector<effect_row> possible;
    std::copy_if(effects.begin(), effects.end(), std::back_inserter(possible), isPossible);
    throw std::invalid_argument("fault: '" + name + "' cannot happen there, possible are " +
                                listed(possible, [](const effect_row& row) { return row.name; }));
  }
  return *found;
}

// The number that follows the name of an effect.
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
  words.resize(std::max<std::size_t>(words.size(), 2));  // a word that is left out is empty
  const effect_row& row = effect_at(words[0], kind_of_point(parsed.point));
  parsed.what = {row.kind, row.hasNumber ? parse_number(row, words[1]) : 0};
  for (std::size_t at = row.hasNumber ? 2 : 1; at < words.size() && !words[at].empty(); ++at) {
    const std::string& word = words[at];
    if (word[0] != '@' && word[0] != 'x') {
      throw std::invalid_argument("fault: '" + word + "' is neither @FIRST nor xTIMES");
    }
    auto& count = word[0] == '@' ? parsed.first : parsed.times;
    count = static_cast<std::uint64_t>(to_int("fault: " + word.substr(0, 1), word.substr(1), 1, INT64_MAX));
  }
  return parsed;
}

}  // namespace

std::vector<fault> parse_faults(const std::string& text) {
  std::vector<fault> parsed;
  for (const std::string& each : statements(text)) {
    parsed.push_back(parse_fault(each));
  }
  return parsed;
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

}  // namespace sim
