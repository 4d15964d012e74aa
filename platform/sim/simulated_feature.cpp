#include "platform/sim/simulated_feature.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "platform/sim/parsing.h"

namespace sim {
namespace {

using gev::value;
using gev::value_kind;

GenApi::EAccessMode access_from(const std::string& what, const std::string& text) {
  return static_cast<GenApi::EAccessMode>(one_of(what, text, {"NI", "NA", "WO", "RO", "RW"}));
}

value_kind kind_from(const std::string& what, const std::string& text) {
  constexpr std::array kinds = {value_kind::integer, value_kind::floating, value_kind::boolean,
                                value_kind::enumeration, value_kind::string};
  return kinds.at(one_of(what, text, {"integer", "float", "boolean", "enumeration", "string"}));
}

}  // namespace

simulated_feature::simulated_feature(feature_row row, feature_owner& owner)
    : row_(std::move(row)), owner_(owner), kind_(row_.kind) {
  const feature_row* selector = find_row(row_.selector);
  values_.resize(selector == nullptr ? 1 : selector->entries.size());
  power_up();
}

void simulated_feature::connect(simulated_feature* selector, simulated_feature* fitsWith, bool liveLimits) {
  selector_ = selector;
  fitsWith_ = fitsWith;
  liveLimits_ = liveLimits;
}

void simulated_feature::power_up() {
  std::fill(values_.begin(), values_.end(), row_.powerUp);
}

// The table numbers the entries of a selector from 0, so that an entry's number is its place. That holds for
// a camera without some of the entries, too.
std::size_t simulated_feature::place(std::string_view selected) {
  if (selector_ == nullptr) {
    return 0;
  }
  const auto& entries = find_row(row_.selector)->entries;
  const auto* entry = selected.empty() ? gev::find_entry(entries, gev::to_integer(selector_->current(0)))
                                       : gev::find_entry(entries, selected);
  if (entry == nullptr && !selected.empty()) {
    throw std::invalid_argument(row_.selector + " '" + std::string(selected) + "' is not one of " +
                                gev::entry_names(entries));
  }
  return entry == nullptr ? 0 : static_cast<std::size_t>(entry->number);
}

value simulated_feature::current(std::size_t place) {
  return row_.isMeasured ? value(owner_.measure(place)) : values_[place];
}

GenApi::EAccessMode simulated_feature::access() {
  const GenApi::EAccessMode own = alteredAccess_.value_or(row_.access);
  return own == GenApi::RW && obstacle() != nullptr ? GenApi::RO : own;
}

const char* simulated_feature::obstacle() {
  return row_.access == GenApi::RW ? owner_.write_obstacle(row_.isLocked) : nullptr;
}

value simulated_feature::get(bool /*ignoreCache*/) {
  const value now = current(place({}));
  return kind_ == value_kind::string ? gev::format(row_.kind, row_.entries, now) : now;
}

value simulated_feature::min() {
  return alteredMin_.value_or(row_.min);
}

value simulated_feature::max() {
  return alteredMax_.value_or(liveLimits_ ? camera_max() : row_.max);
}

value simulated_feature::inc() {
  return alteredInc_.value_or(row_.inc);
}

double simulated_feature::number(std::string_view selected) {
  return gev::to_number(current(place(selected)));
}

std::string simulated_feature::text(std::string_view selected) {
  return gev::format(row_.kind, row_.entries, current(place(selected)));
}

void simulated_feature::force(const std::string& text) {
  const bool isNumber =
      row_.kind == value_kind::enumeration && gev::find_entry(row_.entries, text) == nullptr;
  value wanted;
  try {
    wanted = gev::parse(row_.name, isNumber ? value_kind::integer : row_.kind, row_.entries, text);
  } catch (const GenICam::GenericException& refusal) {
    throw std::invalid_argument(refusal.GetDescription());
  }
  owner_.before_change();
  if (row_.isMeasured) {
    row_.isMeasured = false;
    row_.powerUp = wanted;
    power_up();
  }
  values_[place({})] = wanted;
}

void simulated_feature::alter(const std::string& property, const std::string& text) {
  const std::string what = row_.name + " " + property;
  const auto limit = [&] {
    constexpr double most = 1e300;
    return row_.kind == value_kind::floating ? value(to_double(what, text, -most, most))
                                             : value(to_int(what, text, INT64_MIN, INT64_MAX));
  };
  switch (one_of(row_.name + ": property", property, {"min", "max", "inc", "access", "kind"})) {
    case 0:
      alteredMin_ = limit();
      break;
    case 1:
      alteredMax_ = limit();
      break;
    case 2:
      alteredInc_ = limit();
      break;
    case 3:
      alteredAccess_ = access_from(what, text);
      break;
    default:
      kind_ = kind_from(what, text);
      break;
  }
}

void simulated_feature::alter_entry(const std::string& entry, const std::string& property,
                                    const std::string& text) {
  const std::string what = row_.name + "." + entry;
  const auto found = std::find_if(row_.entries.begin(), row_.entries.end(),
                                  [&](const gev::entry& each) { return each.name == entry; });
  if (found == row_.entries.end()) {
    throw std::invalid_argument(what + " is no entry, those of " + row_.name +
                                " are: " + gev::entry_names(row_.entries));
  }
  one_of(what + ": property", property, {"access"});
  found->access = access_from(what + " access", text);
}

}  // namespace sim
