#include "host/acquire/manual_settings.h"

#include <optional>

#include "core/log.h"
#include "host/acquire/sweeps.h"

namespace host {
namespace {

constexpr std::size_t kStepsMax = 100;

template <class T>
void drop_same(std::optional<T>& wanted, const std::optional<T>& now) {
  if (wanted == now) {
    wanted.reset();
  }
}

// What of `wanted` is different now: a setting that is given again may cost a restart of the transfer.
light_settings changes(light_settings wanted, const light_settings& now) {
  drop_same(wanted.exposureUs, now.exposureUs);
  drop_same(wanted.gainDb, now.gainDb);
  drop_same(wanted.gamma, now.gamma);
  drop_same(wanted.irLevel, now.irLevel);
  return wanted;
}

}  // namespace

queue_answer manual_settings::apply(const std::string& requester, const light_settings& settings) {
  const std::lock_guard lock(mutex_);
  const step back{requester, queue_.in_force(), given_};
  queue_answer answer = give(requester, settings);
  if (answer.reasons.empty()) {
    first_ = first_.value_or(back.before);
    given_ = merged(given_, settings);
    steps_.push_back(back);
    if (steps_.size() > kStepsMax) {
      steps_.erase(steps_.begin());
    }
  }
  return answer;
}

queue_answer manual_settings::undo(const std::string& requester) {
  const std::lock_guard lock(mutex_);
  if (steps_.empty()) {
    return {0, {"nothing was applied by hand that could be undone"}};
  }
  queue_answer answer = give(requester, changes(steps_.back().before, queue_.in_force()));
  if (answer.reasons.empty()) {
    given_ = merged(given_, steps_.back().before);
    steps_.pop_back();
  }
  return answer;
}

queue_answer manual_settings::restore(const std::string& requester) {
  const std::lock_guard lock(mutex_);
  const step back{requester, queue_.in_force(), given_};
  const light_settings wanted = merged(first_.value_or(light_settings{}), configured_);
  queue_answer answer = give(requester, changes(wanted, back.before));
  if (answer.reasons.empty()) {
    first_ = first_.value_or(back.before);
    given_ = {};
    steps_.push_back(back);
  }
  return answer;
}

queue_answer manual_settings::give(const std::string& requester, const light_settings& settings) {
  queue_answer answer = queue_.add(requester, settings);
  if (answer.reasons.empty()) {
    LOG(3, "%s: %s", requester.c_str(), settings_text(settings).c_str());
  }
  return answer;
}

void manual_settings::resume() {
  const std::lock_guard lock(mutex_);
  given_ = {};
  steps_.clear();
  first_.reset();
}

bool manual_settings::are_sweeps_held() const {
  const std::lock_guard lock(mutex_);
  return first_.has_value();
}

bool manual_settings::can_undo() const {
  const std::lock_guard lock(mutex_);
  return !steps_.empty();
}

light_settings manual_settings::configured() const {
  const std::lock_guard lock(mutex_);
  return configured_;
}

light_settings manual_settings::restored() const {
  const std::lock_guard lock(mutex_);
  return merged(first_.value_or(light_settings{}), configured_);
}

// The gamma of the configuration is given as well: the sweep that would set it is held.
void manual_settings::run_started(const light_settings& configured) {
  const std::lock_guard lock(mutex_);
  configured_ = configured;
  const light_settings again = merged({.gamma = configured.gamma}, given_);
  if (first_ && again != light_settings{}) {
    give("again, by hand", again);
  }
}

void manual_settings::refused(const std::string& requester) {
  const std::lock_guard lock(mutex_);
  if (!steps_.empty() && steps_.back().requester == requester) {
    given_ = steps_.back().given;
    steps_.pop_back();
  }
}

}  // namespace host
