// The realtime (wall) clock, CLOCK_REALTIME, as plain C functions. All may be called from any thread; none
// fails.
#ifndef CORE_TIME_HELPERS_H
#define CORE_TIME_HELPERS_H

#include <cstdint>
#include <ctime>

extern "C" {

/// Time since the epoch, in the unit of the name, truncated.
std::uint64_t Time__GetTimeUsec();
std::uint64_t Time__GetTimeMsec();
std::int64_t Time__GetTimeSec();

/// Fills `*until` with now plus the amount, in the unit of the name. The nanoseconds stay below
/// 1,000,000,000; whole seconds leave them as the clock gave them. An amount that leads beyond the
/// last second of a time_t ends there: all bits set means "for ever".
void Time__GetTimeUntilUsec(timespec* until, std::uint64_t usec);
void Time__GetTimeUntilMsec(timespec* until, std::uint64_t msec);
void Time__GetTimeUntilSec(timespec* until, std::uint64_t sec);
}

#endif
