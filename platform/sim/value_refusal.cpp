// How a simulated camera refuses a value.
//
// A write has been checked against what the feature presents (`gev::write`), unless it is unverified. The
// camera then refuses by its own limits, which tests cannot alter: it has no such value, the feature is read
// only or locked, or a window's offset and size do not fit on the sensor together.
#include <string>

#include "platform/gev/exceptions.h"
#include "platform/gev/value_check.h"
#include "platform/sim/simulated_feature.h"

namespace sim {

using gev::value;
using gev::value_kind;

void simulated_feature::set(const value& to) {
  const value wanted = of_own_kind(to);
  gev::check_writable(*this, wanted,
                      owner_.write_obstacle(row_.isLocked) == nullptr ? row_.access : GenApi::RO);
  refuse_beyond_camera(wanted);
  owner_.before_change();
  values_[place({})] = wanted;
}

// A feature that presents itself as another kind still keeps a value of its own kind.
value simulated_feature::of_own_kind(const value& from) {
  if (row_.kind == value_kind::string) {
    return gev::to_text(from);
  }
  if (const auto* text = std::get_if<std::string>(&from)) {
    return gev::parse(row_.name, row_.kind, row_.entries, *text);
  }
  return row_.kind == value_kind::floating ? value(gev::to_number(from)) : value(gev::to_integer(from));
}

void simulated_feature::refuse_beyond_camera(const value& to) {
  gev::check_value(*this, row_.kind, to, {row_.min, row_.max, row_.inc}, row_.entries);
  if (fitsWith_ != nullptr && gev::to_integer(to) > gev::to_integer(camera_max())) {
    gev::raise<GenICam::OutOfRangeException>(
        row_.name + ": value " + gev::to_text(to) + " does not fit on the sensor: with " + fitsWith_->name() +
        " " + fitsWith_->text() + " the maximum is " + gev::to_text(camera_max()));
  }
}

// The largest value that the camera takes. For a size or an offset of the window that is what the other one
// leaves of the sensor, in whole increments: of 1280 pixels, an OffsetX of 100 leaves 1180, which allows a
// Width of 1168. The sensor's side is the largest offset plus the smallest size, because those two fit
// together exactly.
value simulated_feature::camera_max() {
  if (fitsWith_ == nullptr) {
    return row_.max;
  }
  const std::int64_t sensor = gev::to_integer(row_.max) + gev::to_integer(fitsWith_->row_.min);
  const std::int64_t room = sensor - gev::to_integer(fitsWith_->current(0));
  return room - room % gev::to_integer(row_.inc);
}

}  // namespace sim
