#include "platform/gev/feature.h"

#include "core/log.h"
#include "platform/gev/exceptions.h"
#include "platform/gev/value_check.h"

namespace gev {
namespace {

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

// A network camera is asked for its limits. One that has just not answered is not asked again.
std::string right_values_or_unknown(feature& of, const GenICam::GenericException& refusal) {
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
void log_if_refused(feature& to, const std::string& written, Write write) {
  try {
    write();
  } catch (const GenICam::GenericException& refusal) {
    log_refusal(to.name(), written, right_values_or_unknown(to, refusal), refusal);
    throw;
  }
}

const std::string noText;

}  // namespace

const std::string& feature::category() const {
  return noText;
}

const std::string& feature::description() const {
  return noText;
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
  log_if_refused(to, format(to.kind(), {}, written), [&] { check_and_write(to, written, verify); });
}

void write_text(feature& to, std::string_view text, bool verify) {
  log_if_refused(to, std::string(text),
                 [&] { check_and_write(to, parse(to.name(), to.kind(), to.entries(), text), verify); });
}

void log_refusal(const std::string& feature, const std::string& written, const std::string& right,
                 const GenICam::GenericException& refusal) {
  LOG(2, "fail: write %s (value:%s, right:%s, reason:%s)", feature.c_str(), written.c_str(), right.c_str(),
      refusal.GetDescription());
}

}  // namespace gev
