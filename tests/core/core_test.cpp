// The errors, the clock and the conversions: what host and bundle share beside the table.
#include <cmath>
#include <limits>

#include "core/errors.h"
#include "core/numeric.h"
#include "core/time_helpers.h"
#include "tests/src/bundle_fixture.h"

namespace test {
namespace {

// Catches a changed parent, which changes what a boundary catches, and a text of the bundle's own.
TEST(errors, form_one_tree_and_carry_no_text) {
  using namespace Zavik;
  static_assert(
      std::is_base_of_v<std::exception, generic_error> && std::is_base_of_v<generic_error, internal_error> &&
      std::is_base_of_v<internal_error, unsupported_error> &&
      std::is_base_of_v<generic_error, external_error> && std::is_base_of_v<external_error, params_error> &&
      std::is_base_of_v<external_error, not_found_error> &&
      !std::is_base_of_v<internal_error, external_error>);
  static_assert(sizeof(not_found_error) == sizeof(std::exception) &&
                std::has_virtual_destructor_v<generic_error>);
  EXPECT_STREQ(params_error().what(), std::exception().what());
}

// Catches a wrong unit, rounding instead of cutting, and nanoseconds that are not carried.
TEST(time_helpers, tell_the_realtime_clock) {
  pretendedTime = timespec{100, 900'000'999};
  EXPECT_EQ(Time__GetTimeUsec(), 100'900'000U);
  EXPECT_EQ(Time__GetTimeMsec(), 100'900U);
  EXPECT_EQ(Time__GetTimeSec(), 100);
  pretendedTime->tv_nsec = 900'000'000;
  struct {
    void (*fill)(timespec*, std::uint64_t);
    std::uint64_t amount;
    timespec until;
  } const cases[] = {{Time__GetTimeUntilMsec, 1'500, {102, 400'000'000}},
                     {Time__GetTimeUntilMsec, 100, {101, 0}},
                     {Time__GetTimeUntilUsec, 1'099'999, {101, 999'999'000}},
                     {Time__GetTimeUntilUsec, 1'100'000, {102, 0}},
                     {Time__GetTimeUntilSec, 7, {107, 900'000'000}},
                     {Time__GetTimeUntilSec, UINT64_MAX, {std::numeric_limits<time_t>::max(), 900'000'000}},
                     {Time__GetTimeUntilUsec, UINT64_MAX, {100 + 18'446'744'073'710, 451'615'000}}};
  for (const auto& [fill, amount, until] : cases) {
    timespec filled{};
    fill(&filled, amount);
    EXPECT_EQ(std::pair(filled.tv_sec, filled.tv_nsec), std::pair(until.tv_sec, until.tv_nsec)) << amount;
  }
  pretendedTime.reset();
}

// Catches a conversion that the language leaves undefined.
TEST(numeric, truncates_every_value) {
  using Zavik::truncateTo;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(truncateTo<std::int64_t>(-1.9), -1);
  EXPECT_EQ(truncateTo<std::int64_t>(std::ldexp(-1.0, 63)), INT64_MIN);
  EXPECT_EQ(truncateTo<std::uint64_t>(std::ldexp(1.0, 63)), std::uint64_t{1} << 63U);
  EXPECT_EQ(truncateTo<std::uint64_t>(-0.5), 0U);
  for (const double none : {std::nan(""), kInfinity, -kInfinity, 1e300, std::ldexp(1.0, 63)}) {
    EXPECT_EQ(truncateTo<std::int64_t>(none), 0) << none;
  }
}

}  // namespace
}  // namespace test
