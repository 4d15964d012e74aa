#include "platform/gev/value_check.h"

#include <cmath>

#include "platform/gev/exceptions.h"

namespace gev {
namespace {

std::string value_of(const feature& of, const value& what) {
  return of.name() + ": value " + to_text(what);
}

template <class Number>
void check_limits(const feature& of, Number number, Number min, Number max) {
  if (number < min) {
    raise<GenICam::OutOfRangeException>(value_of(of, number) + " is below the minimum " + with_unit(of, min));
  }
  if (number > max) {
    raise<GenICam::OutOfRangeException>(value_of(of, number) + " is above the maximum " + with_unit(of, max));
  }
}

void check_integer(const feature& of, std::int64_t number, std::int64_t min, std::int64_t max,
                   std::int64_t inc) {
  check_limits(of, number, min, max);
  // Without a minimum the distance to it takes all 64 bits.
  const auto distance = static_cast<std::uint64_t>(number) - static_cast<std::uint64_t>(min);
  const auto excess = inc > 1 ? static_cast<std::int64_t>(distance % static_cast<std::uint64_t>(inc)) : 0;
  if (excess != 0) {
    raise<GenICam::OutOfRangeException>(
        value_of(of, number) + " is off the increment " + std::to_string(inc) + ", next to it are " +
        std::to_string(number - excess) + " and " + std::to_string(number - excess + inc));
  }
}

void check_number(const feature& of, double number, double min, double max) {
  if (std::isnan(number)) {
    raise<GenICam::InvalidArgumentException>(of.name() + ": value is not a number, right is " + to_text(min) +
                                             " to " + with_unit(of, max));
  }
  check_limits(of, number, min, max);
}

void check_entry(const feature& of, std::int64_t number, const std::vector<entry>& entries) {
  const entry* chosen = find_entry(entries, number);
  if (chosen == nullptr) {
    raise<GenICam::InvalidArgumentException>(value_of(of, number) +
                                             " is none of its entries: " + entry_names(entries));
  }
  if (chosen->access == GenApi::NI || chosen->access == GenApi::NA) {
    raise<GenICam::AccessException>(of.name() + ": entry " + chosen->name + " is not offered by the camera");
  }
}

}  // namespace

std::string with_unit(const feature& of, const value& what) {
  return of.unit().empty() ? to_text(what) : to_text(what) + " " + of.unit();
}

void check_value(const feature& of, value_kind kind, const value& what, const limits& within,
                 const std::vector<entry>& entries) {
  switch (kind) {
    case value_kind::integer:
      check_integer(of, to_integer(what), to_integer(within.min), to_integer(within.max),
                    to_integer(within.inc));
      break;
    case value_kind::floating:
      check_number(of, to_number(what), to_number(within.min), to_number(within.max));
      break;
    case value_kind::enumeration:
      check_entry(of, to_integer(what), entries);
      break;
    case value_kind::boolean:
    case value_kind::string:
      break;
  }
}

void check_writable(feature& of, const value& written, GenApi::EAccessMode access) {
  if (access == GenApi::RW || access == GenApi::WO) {
    return;
  }
  const std::string refused =
      of.name() + ": value " + format(of.kind(), of.entries(), written) + " refused, it ";
  if (access != GenApi::RO) {
    raise<GenICam::AccessException>(refused + "is not " +
                                    (access == GenApi::NI ? "implemented" : "available"));
  }
  const char* obstacle = of.obstacle();
  raise<GenICam::AccessException>(refused + "is read only" +
                                  (obstacle != nullptr ? std::string(": ") + obstacle : ""));
}

}  // namespace gev
