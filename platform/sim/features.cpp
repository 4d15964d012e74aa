#include "platform/sim/features.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "platform/gev/exceptions.h"
#include "platform/gev/value_check.h"
#include "platform/sim/words.h"

namespace sim {
namespace {

using gev::value;
using gev::value_kind;

bool contains(const std::vector<std::string>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

GenApi::EAccessMode access_from(const std::string& what, const std::string& text) {
  return static_cast<GenApi::EAccessMode>(one_of(what, text, {"NI", "NA", "WO", "RO", "RW"}));
}

value_kind kind_from(const std::string& what, const std::string& text) {
  constexpr std::array kinds = {value_kind::integer, value_kind::floating, value_kind::boolean,
                                value_kind::enumeration, value_kind::string};
  return kinds.at(one_of(what, text, {"integer", "float", "boolean", "enumeration", "string"}));
}

// What the description says of single features, as the row that this camera has.
void describe(feature_row& row, const camera_description& camera) {
  const auto smallest = [](std::int64_t sensor) { return std::min(smallestWindowSide, sensor); };
  const std::map<std::string, std::function<void()>, std::less<>> own = {
      {"DeviceModelName", [&] { row.powerUp = camera.model; }},
      {"DeviceSerialNumber", [&] { row.powerUp = camera.serial; }},
      {"DeviceVersion", [&] { row.powerUp = camera.version; }},
      {"GevTimestampTickFrequency", [&] { row.powerUp = camera.ticks; }},
      {"AcquisitionFrameRate", [&] { row.powerUp = camera.fps; }},
      {"ExposureTime", [&] { row.powerUp = camera.exposureUs; }},
      {"DeviceTemperature",
       [&] {
         row.measured = !camera.temperature.has_value();
         row.powerUp = camera.temperature.value_or(0);
       }},
      {"OffsetX", [&] { row.max = camera.width - smallest(camera.width); }},
      {"OffsetY", [&] { row.max = camera.height - smallest(camera.height); }},
      {"Width",
       [&] {
         row.powerUp = row.max = camera.width;
         row.min = smallest(camera.width);
       }},
      {"Height",
       [&] {
         row.powerUp = row.max = camera.height;
         row.min = smallest(camera.height);
       }},
  };
  if (const auto found = own.find(row.name); found != own.end()) {
    found->second();
  }
  if (contains(camera.readonly, row.name)) {
    row.access = GenApi::RO;
  }
  for (const auto& [feature, entry] : camera.entryless) {
    if (feature == row.name) {
      std::erase_if(row.entries, [&name = entry](const gev::entry& each) { return each.name == name; });
    }
  }
}

}  // namespace

camera_feature::camera_feature(feature_row row, feature_host& host)
    : row_(std::move(row)), host_(host), kind_(row_.kind) {
  const feature_row* selector = find_row(row_.selector);
  values_.resize(selector == nullptr ? 1 : selector->entries.size());
  power_up();
}

void camera_feature::connect(camera_feature* selector, camera_feature* fitsWith, bool liveLimits) {
  selector_ = selector;
  fitsWith_ = fitsWith;
  liveLimits_ = liveLimits;
}

void camera_feature::power_up() {
  std::fill(values_.begin(), values_.end(), row_.powerUp);
}

// Entries of a selector are numbered from 0 in the table, whether the camera has all of them or not.
std::size_t camera_feature::place(std::string_view selected) {
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

value camera_feature::current(std::size_t place) {
  return row_.measured ? value(host_.measure(place)) : values_[place];
}

GenApi::EAccessMode camera_feature::access() {
  const GenApi::EAccessMode own = alteredAccess_.value_or(row_.access);
  return own == GenApi::RW && obstacle() != nullptr ? GenApi::RO : own;
}

const char* camera_feature::obstacle() {
  return row_.access == GenApi::RW ? host_.write_obstacle(row_.locked) : nullptr;
}

value camera_feature::get(bool /*ignoreCache*/) {
  const value now = current(place({}));
  return kind_ == value_kind::string ? gev::format(row_.kind, row_.entries, now) : now;
}

void camera_feature::set(const value& to) {
  const value wanted = converted(to);
  gev::check_writable(*this, wanted, host_.write_obstacle(row_.locked) == nullptr ? row_.access : GenApi::RO);
  refuse_beyond_camera(wanted);
  host_.before_change();
  values_[place({})] = wanted;
}

// A feature that presents itself as another kind still holds its own.
value camera_feature::converted(const value& from) {
  if (row_.kind == value_kind::string) {
    return gev::to_text(from);
  }
  if (const auto* text = std::get_if<std::string>(&from)) {
    return gev::parse(row_.name, row_.kind, row_.entries, *text);
  }
  return row_.kind == value_kind::floating ? value(gev::to_number(from)) : value(gev::to_integer(from));
}

void camera_feature::refuse_beyond_camera(const value& to) {
  check_value(*this, row_.kind, to, {row_.min, row_.max, row_.inc}, row_.entries);
  if (fitsWith_ != nullptr && gev::to_integer(to) > gev::to_integer(camera_max())) {
    gev::raise<GenICam::OutOfRangeException>(
        row_.name + ": value " + gev::to_text(to) + " does not fit on the sensor, with " + fitsWith_->name() +
        " " + fitsWith_->text() + " at most " + gev::to_text(camera_max()) + " does");
  }
}

value camera_feature::min() {
  return alteredMin_.value_or(row_.min);
}

value camera_feature::max() {
  return alteredMax_.value_or(liveLimits_ ? camera_max() : row_.max);
}

value camera_feature::inc() {
  return alteredInc_.value_or(row_.inc);
}

// Of a window's side: what the other leaves of the sensor, in whole increments. The largest offset leaves
// the smallest size, so that the two limits together are the sensor.
value camera_feature::camera_max() {
  if (fitsWith_ == nullptr) {
    return row_.max;
  }
  const std::int64_t sensor = gev::to_integer(row_.max) + gev::to_integer(fitsWith_->row_.min);
  const std::int64_t room = sensor - gev::to_integer(fitsWith_->current(0));
  return room - room % gev::to_integer(row_.inc);
}

double camera_feature::number(std::string_view selected) {
  return gev::to_number(current(place(selected)));
}

std::string camera_feature::text(std::string_view selected) {
  return gev::format(row_.kind, row_.entries, current(place(selected)));
}

void camera_feature::force(const std::string& text) {
  const bool unnamed = row_.kind == value_kind::enumeration && gev::find_entry(row_.entries, text) == nullptr;
  value wanted;
  try {
    wanted = gev::parse(row_.name, unnamed ? value_kind::integer : row_.kind, row_.entries, text);
  } catch (const GenICam::GenericException& refusal) {
    throw std::invalid_argument(refusal.GetDescription());
  }
  host_.before_change();
  if (row_.measured) {
    row_.measured = false;
    row_.powerUp = wanted;
    power_up();
  }
  values_[place({})] = wanted;
}

void camera_feature::alter(const std::string& property, const std::string& text) {
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

void camera_feature::alter_entry(const std::string& entry, const std::string& property,
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

camera_features::camera_features(const camera_description& camera, feature_host& host)
    : missing_(camera.missing) {
  for (feature_row row : feature_table()) {
    describe(row, camera);
    const std::string name = row.name;
    auto& made = features_.try_emplace(name, std::move(row), host).first->second;
    if (contains(camera.retype, name)) {
      made.alter("kind", "string");
    }
  }
  const auto named = [&](const std::string& name) { return name.empty() ? nullptr : &at(name); };
  for (const feature_row& row : feature_table()) {
    at(row.name).connect(named(row.selector), named(row.fitsWith),
                         camera.liveLimits && !row.fitsWith.empty());
  }
}

camera_feature& camera_features::at(std::string_view name) {
  const auto found = features_.find(name);
  if (found == features_.end()) {
    throw std::invalid_argument("unknown feature '" + std::string(name) + "', known features are " +
                                listed(feature_table(), [](const feature_row& row) { return row.name; }));
  }
  return found->second;
}

camera_feature* camera_features::present(std::string_view name) {
  const auto found = features_.find(name);
  return found == features_.end() || contains(missing_, name) ? nullptr : &found->second;
}

void camera_features::for_each_present(const std::function<void(camera_feature&)>& visit) {
  for (const feature_row& row : feature_table()) {
    if (camera_feature* const feature = present(row.name)) {
      visit(*feature);
    }
  }
}

void camera_features::power_up() {
  for (auto& [name, feature] : features_) {
    feature.power_up();
  }
}

}  // namespace sim
