#include "platform/gev/feature.h"

#include <cmath>

#include "core/log.h"
#include "platform/gev/exceptions.h"

namespace gev {
namespace {

std::string value_of(const feature& of, const value& what) {
  return of.name() + ": value " + to_text(what);
}

std::string with_unit(const feature& of, const value& what) {
  return of.unit().empty() ? to_text(what) : to_text(what) + " " + of.unit();
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

void check_presented(feature& of, const value& what) {
  const value_kind kind = of.kind();
  limits within;
  if (kind == value_kind::integer || kind == value_kind::floating) {
    within = {of.min(), of.max(), kind == value_kind::integer ? of.inc() : value()};
  }
  check_value(of, kind, what, within, of.entries());
}

void check_readable(feature& of) {
  const GenApi::EAccessMode access = of.access();
  if (access != GenApi::RO && access != GenApi::RW) {
    raise<GenICam::AccessException>(of.name() + (access == GenApi::WO ? ": is write only, it cannot be read"
                                                 : access == GenApi::NA
                                                     ? ": is not available at the moment"
                                                     : ": is not implemented by the camera"));
  }
}

void check_and_write(feature& to, const value& written, bool verify) {
  if (verify) {
    check_writable(to, written, to.access());
    check_presented(to, written);
  }
  to.set(written);
}

// "16 to 64 by 16 px", "Off, Active"
std::string right_values(feature& of) {
  switch (of.kind()) {
    case value_kind::integer:
      return to_text(of.min()) + " to " + to_text(of.max()) + " by " + with_unit(of, of.inc());
    case value_kind::floating:
      return to_text(of.min()) + " to " + with_unit(of, of.max());
    case value_kind::enumeration:
      return entry_names(of.entries());
    case value_kind::boolean:
      return "0, 1";
    case value_kind::string:
      break;
  }
  return "any text";
}

// Limits are the camera's to say, and one that has just not answered is not asked again.
std::string right_values_if_told(feature& of, const GenICam::GenericException& refusal) {
  if (dynamic_cast<const GenICam::TimeoutException*>(&refusal) != nullptr) {
    return "unknown";
  }
  try {
    return right_values(of);
  } catch (const GenICam::GenericException&) {
    return "unknown";
  }
}

template <class Write>
void logging_refusals(feature& to, const std::string& written, Write write) {
  try {
    write();
  } catch (const GenICam::GenericException& refusal) {
    log_refusal(to.name(), written, right_values_if_told(to, refusal), refusal);
    throw;
  }
}

const std::string unsaid;

}  // namespace

const std::string& feature::category() const {
  return unsaid;
}

const std::string& feature::description() const {
  return unsaid;
}

value read(feature& from, bool verify, bool ignoreCache) {
  check_readable(from);
  value result = from.get(ignoreCache);
  if (verify) {
    check_presented(from, result);
  }
  return result;
}

void write(feature& to, const value& written, bool verify) {
  logging_refusals(to, format(to.kind(), {}, written), [&] { check_and_write(to, written, verify); });
}

void write_text(feature& to, std::string_view text, bool verify) {
  logging_refusals(to, std::string(text),
                   [&] { check_and_write(to, parse(to.name(), to.kind(), to.entries(), text), verify); });
}

void log_refusal(const std::string& feature, const std::string& written, const std::string& right,
                 const GenICam::GenericException& refusal) {
  LOG(2, "fail: write %s (value:%s, right:%s, reason:%s)", feature.c_str(), written.c_str(), right.c_str(),
      refusal.GetDescription());
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
