#include "host/acquire/sweeps.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace host {
namespace {

// As the bundle: this near to 1.0 gamma is off.
constexpr float kGammaOffTolerance = 0.001F;

bool wants_gamma(const light_settings& settings) {
  return settings.gamma && std::abs(*settings.gamma - 1.0F) >= kGammaOffTolerance;
}

template <class T>
void take(std::optional<T>& to, const std::optional<T>& from) {
  if (from) {
    to = from;
  }
}

template <class T>
void append(std::string& text, const char* format, const std::optional<T>& value) {
  if (value) {
    text += text.empty() ? "" : ", ";
    text += fmt::format(fmt::runtime(format), *value);
  }
}

}  // namespace

std::string settings_text(const light_settings& settings) {
  std::string text;
  append(text, "exposure {} us", settings.exposureUs);
  append(text, "gain {} dB", settings.gainDb);
  append(text, "gamma {}", settings.gamma);
  append(text, "IR level {}", settings.irLevel);
  return text;
}

light_settings merged(light_settings before, const light_settings& change) {
  take(before.gainDb, change.gainDb);
  take(before.exposureUs, change.exposureUs);
  take(before.gamma, change.gamma);
  take(before.irLevel, change.irLevel);
  return before;
}

sweep_schedule::sweep_schedule(const camera_config& camera, const std::vector<sweep_config>& sweeps) {
  if (wants_gamma(camera.initial)) {
    sweep_config gamma;
    gamma.afterFrames = 1;
    gamma.settings.gamma = camera.initial.gamma;
    entries_.push_back(gamma);
    names_.push_back("start: " + settings_text(gamma.settings));
  }
  for (const sweep_config& sweep : sweeps) {
    entries_.push_back(sweep);
    names_.push_back(fmt::format("sweep {}: {}", &sweep - sweeps.data() + 1, settings_text(sweep.settings)));
  }
  isDropped_.resize(entries_.size());
}

void sweep_schedule::start(std::uint64_t nowUs) {
  looping_ = false;
  next_ = from(0);
  lastUs_ = nowUs;
  lastFrame_ = 0;
}

std::optional<sweep_step> sweep_schedule::due(std::uint64_t nowUs, std::uint64_t frames) {
  if (next_ == entries_.size() || !is_due(entries_[next_], nowUs, frames)) {
    return std::nullopt;
  }
  const sweep_step step{next_, entries_[next_].settings};
  lastUs_ = nowUs;
  lastFrame_ = frames;
  advance();
  return step;
}

bool sweep_schedule::is_due(const sweep_config& sweep, std::uint64_t nowUs, std::uint64_t frames) const {
  if (sweep.afterFrames) {
    return frames >= lastFrame_ + static_cast<std::uint64_t>(*sweep.afterFrames);
  }
  return static_cast<double>(nowUs - lastUs_) >= *sweep.afterSeconds * 1e6;
}

// The first pass takes every entry, later ones those that loop.
void sweep_schedule::advance() {
  next_ = from(next_ + 1);
  if (next_ == entries_.size()) {
    looping_ = true;
    next_ = from(0);
  }
}

std::size_t sweep_schedule::from(std::size_t index) const {
  const auto comes = [this](std::size_t at) { return (entries_[at].loop || !looping_) && !isDropped_[at]; };
  while (index < entries_.size() && !comes(index)) {
    ++index;
  }
  return index;
}

}  // namespace host
