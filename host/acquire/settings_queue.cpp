#include "host/acquire/settings_queue.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/acquire/sweeps.h"

namespace host {
namespace {

constexpr std::size_t kPastMax = 100;
constexpr std::size_t kOutcomesMax = 1000;  // later requesters share the last one
constexpr std::uint64_t kFramesOfGap = 10;  // an interval within so many frames counts as the request's gap

void append(std::deque<setting_request>& past, setting_request request) {
  past.push_back(std::move(request));
  if (past.size() > kPastMax) {
    past.pop_front();
  }
}

}  // namespace

bool shows(const cam_frame_info& info, const light_settings& wanted) {
  const auto near = [](float seen, const std::optional<float>& value, float tolerance) {
    return !value || std::abs(seen - *value) <= tolerance;
  };
  return near(info.exposureUs, wanted.exposureUs, wanted.exposureUs.value_or(0) * 0.01F) &&
         near(info.gainDb, wanted.gainDb, 0.1F);
}

bool is_in_frames(const light_settings& wanted) {
  return wanted.exposureUs.has_value() || wanted.gainDb.has_value();
}

queue_answer settings_queue::add(const std::string& requester, const light_settings& settings) {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> reasons = refused_settings(settings, limits_);
  if (waiting_.size() >= kWaitingMax) {
    reasons.push_back(fmt::format("{} requests wait already", waiting_.size()));
  }
  setting_request request{.id = ++lastId_,
                          .requester = requester,
                          .settings = settings,
                          .refusal = fmt::format("{}", fmt::join(reasons, "; "))};
  const queue_answer answer{reasons.empty() ? request.id : 0, reasons};
  if (reasons.empty()) {
    waiting_.push_back(std::move(request));
  } else {
    outcome_of(request).refusal = request.refusal;
    append(past_, std::move(request));
  }
  return answer;
}

std::vector<setting_request> settings_queue::account() const {
  const std::lock_guard lock(mutex_);
  std::vector<setting_request> all(past_.begin(), past_.end());
  if (watched_) {
    all.push_back(*watched_);
  }
  all.insert(all.end(), waiting_.begin(), waiting_.end());
  return all;
}

std::vector<setting_outcome> settings_queue::outcomes() const {
  const std::lock_guard lock(mutex_);
  return outcomes_;
}

light_settings settings_queue::in_force() const {
  const std::lock_guard lock(mutex_);
  light_settings result = inForce_;
  for (const setting_request& each : waiting_) {
    result = merged(result, each.settings);
  }
  return result;
}

light_limits settings_queue::limits() const {
  const std::lock_guard lock(mutex_);
  return limits_;
}

setting_outcome& settings_queue::outcome_of(const setting_request& request) {
  const auto found = std::find_if(outcomes_.begin(), outcomes_.end(), [&](const setting_outcome& each) {
    return each.requester == request.requester;
  });
  const bool isNew = found == outcomes_.end() && outcomes_.size() < kOutcomesMax;
  setting_outcome& outcome = isNew                      ? outcomes_.emplace_back()
                             : found == outcomes_.end() ? outcomes_.back()
                                                        : *found;
  outcome.requester = request.requester;
  outcome.settings = request.settings;
  return outcome;
}

void settings_queue::run_started(const std::vector<std::string>& requesters, const light_settings& inForce,
                                 const light_limits& limits) {
  const std::lock_guard lock(mutex_);
  limits_ = limits;
  inForce_ = inForce;
  inForce_.gamma = inForce.gamma.value_or(1.0F);  // the driver switches it off as a run starts
  waiting_.clear();
  if (watched_) {
    append(past_, *std::exchange(watched_, std::nullopt));
  }
  if (requesters == requesters_) {
    return;
  }
  requesters_ = requesters;
  outcomes_.clear();
  for (const std::string& requester : requesters_) {
    outcome_of({.requester = requester, .settings = {}, .refusal = ""});
  }
}

std::optional<light_settings> settings_queue::take(std::uint64_t next) {
  const std::lock_guard lock(mutex_);
  if (waiting_.empty()) {
    return std::nullopt;
  }
  if (watched_) {
    append(past_, *std::move(watched_));
  }
  watched_ = std::move(waiting_.front());
  waiting_.pop_front();
  watched_->appliedBefore = next;
  isProven_ = false;
  arrivals_ = 0;
  setting_outcome& outcome = outcome_of(*watched_);
  ++outcome.applied;
  outcome.appliedBefore = next;

  // Gain and gamma stay by themselves when they are left out.
  inForce_ = merged(inForce_, watched_->settings);
  light_settings complete = watched_->settings;
  complete.exposureUs = inForce_.exposureUs;
  complete.irLevel = inForce_.irLevel;
  return complete;
}

void settings_queue::survived() {
  const std::lock_guard lock(mutex_);
  isProven_ = true;
}

void settings_queue::arrived(const std::optional<std::uint64_t>& intervalUs) {
  const std::lock_guard lock(mutex_);
  isProven_ = true;
  if (watched_ && intervalUs && ++arrivals_ <= kFramesOfGap) {
    for (std::uint64_t* longest : {&watched_->longestGapUs, &outcome_of(*watched_).longestGapUs}) {
      *longest = std::max(*longest, *intervalUs);
    }
  }
}

void settings_queue::handed_over(const cam_frame_info& info, std::uint64_t number) {
  const std::lock_guard lock(mutex_);
  inForce_.gainDb = inForce_.gainDb.value_or(info.gainDb);
  const bool isAwaited = watched_ && watched_->readBackWith == 0 && is_in_frames(watched_->settings);
  if (!isAwaited || !shows(info, watched_->settings)) {
    return;
  }
  watched_->readBackWith = number;
  setting_outcome& outcome = outcome_of(*watched_);
  ++outcome.readBack;
  outcome.readBackWith = number;
  outcome.framesMost = std::max(outcome.framesMost, number - watched_->appliedBefore + 1);
}

bool settings_queue::is_unproven() const {
  const std::lock_guard lock(mutex_);
  return watched_ && !isProven_;
}

std::optional<std::string> settings_queue::run_failed(const std::string& reason) {
  const std::lock_guard lock(mutex_);
  if (!watched_ || isProven_) {
    return std::nullopt;
  }
  watched_->refusal = reason;
  outcome_of(*watched_).refusal = reason;
  return watched_->requester;
}

float settings_queue::exposure_us() const {
  const std::lock_guard lock(mutex_);
  return inForce_.exposureUs.value_or(0);
}

}  // namespace host
