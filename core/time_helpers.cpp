#include "core/time_helpers.h"

#include <limits>

namespace {

constexpr std::uint64_t kNsecPerSec = 1'000'000'000;

timespec now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return time;
}

std::uint64_t nowIn(std::uint64_t unitsPerSec) {
  const timespec time = now();
  return static_cast<std::uint64_t>(time.tv_sec) * unitsPerSec +
         static_cast<std::uint64_t>(time.tv_nsec) / (kNsecPerSec / unitsPerSec);
}

// An amount that leads beyond the last second of a time_t ends there, so that "for ever" never means the
// past.
timespec nowPlus(std::uint64_t amount, std::uint64_t unitsPerSec) {
  const timespec time = now();
  const std::uint64_t nsec =
      static_cast<std::uint64_t>(time.tv_nsec) + amount % unitsPerSec * (kNsecPerSec / unitsPerSec);
  constexpr time_t end = std::numeric_limits<time_t>::max();
  const std::uint64_t sec = amount / unitsPerSec + nsec / kNsecPerSec;
  const std::uint64_t left = static_cast<std::uint64_t>(end) - static_cast<std::uint64_t>(time.tv_sec);
  timespec until{};
  until.tv_sec = sec < left ? time.tv_sec + static_cast<time_t>(sec) : end;
  until.tv_nsec = static_cast<long>(nsec % kNsecPerSec);
  return until;
}

}  // namespace

std::uint64_t Time__GetTimeUsec() {
  return nowIn(1'000'000);
}

std::uint64_t Time__GetTimeMsec() {
  return nowIn(1'000);
}

std::int64_t Time__GetTimeSec() {
  return now().tv_sec;
}

void Time__GetTimeUntilUsec(timespec* until, std::uint64_t usec) {
  *until = nowPlus(usec, 1'000'000);
}

void Time__GetTimeUntilMsec(timespec* until, std::uint64_t msec) {
  *until = nowPlus(msec, 1'000);
}

void Time__GetTimeUntilSec(timespec* until, std::uint64_t sec) {
  *until = nowPlus(sec, 1);
}
