#include "core/time_helpers.h"

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

timespec nowPlus(std::uint64_t amount, std::uint64_t unitsPerSec) {
  const timespec time = now();
  const std::uint64_t nsec =
      static_cast<std::uint64_t>(time.tv_nsec) + amount % unitsPerSec * (kNsecPerSec / unitsPerSec);
  timespec until{};
  until.tv_sec = time.tv_sec + static_cast<time_t>(amount / unitsPerSec + nsec / kNsecPerSec);
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
