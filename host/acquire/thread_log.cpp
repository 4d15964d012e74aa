#include "host/acquire/thread_log.h"

#include <fmt/format.h>

#include <deque>
#include <utility>

namespace host {
namespace {

constexpr std::size_t kFailuresMax = 6;
constexpr int kWarning = 2;
constexpr int kState = 3;
constexpr int kDetail = 4;

thread_local const std::string* currentCamera = nullptr;
thread_local bool failuresExpected = false;
thread_local bool statesAreDetails = false;
thread_local std::deque<std::string> recentFailures;

}  // namespace

camera_log_scope::camera_log_scope(const std::string& serial) noexcept {
  currentCamera = &serial;
  recentFailures.clear();
}

camera_log_scope::~camera_log_scope() {
  currentCamera = nullptr;
  failuresExpected = false;
  statesAreDetails = false;
}

const std::string& logged_camera() {
  static const std::string none;
  return currentCamera != nullptr ? *currentCamera : none;
}

void expect_failures(bool isExpected) {
  failuresExpected = isExpected;
}

void log_details(bool areDetails) {
  statesAreDetails = areDetails;
}

int shown_level(int level) {
  const bool isDetail = level <= kWarning ? failuresExpected : level == kState && statesAreDetails;
  return isDetail ? kDetail : level;
}

void remember_failure(std::string text) {
  if (recentFailures.size() == kFailuresMax) {
    recentFailures.pop_front();
  }
  recentFailures.push_back(std::move(text));
}

std::string take_failures() {
  std::string joined = fmt::format("{}", fmt::join(recentFailures, "; "));
  recentFailures.clear();
  return joined;
}

}  // namespace host
