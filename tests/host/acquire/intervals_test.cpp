// What arrival times tell.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "host/acquire/intervals.h"

namespace {

TEST(intervals, count_missed_frames_but_not_late_ones) {
  struct {
    std::vector<std::uint64_t> intervals;  // of a period of 100
    std::uint64_t missed;
  } const cases[] = {
      {{100, 100, 100}, 0},
      {{149, 51, 100}, 0},
      {{200, 100}, 1},
      {{500, 100}, 4},
      {{300, 10, 90, 100}, 1},
      {{300, 5, 5, 90, 100}, 0},
      {{300, 5, 5, 5}, 0},
      {{140, 140, 140}, 0},
      {{300, 10, 300, 100}, 3},
      {{5, 5, 5, 100, 250, 100}, 2},
      {{160, 55, 85, 100}, 0},
      {{160, 95, 100}, 1},
      {{430, 10, 10, 110, 10, 30}, 0},
      {std::vector<std::uint64_t>(100, 200), 100},
  };
  for (const auto& each : cases) {
    host::interval_tracker tracker(100);
    std::uint64_t now = 1000;
    EXPECT_FALSE(tracker.arrived(now));
    for (const std::uint64_t interval : each.intervals) {
      EXPECT_EQ(tracker.arrived(now += interval), interval);
    }
    EXPECT_GE(tracker.missed() + 40, each.missed) << "a slow camera shows while it runs";
    tracker.interrupt();
    EXPECT_EQ(tracker.missed(), each.missed) << fmt::format("{}", fmt::join(each.intervals, " "));
    EXPECT_FALSE(tracker.arrived(now + 100'000)) << "the pause between two runs is no interval";
    EXPECT_EQ(tracker.missed(), each.missed);
  }
}

TEST(intervals, quantiles_are_within_one_percent) {
  host::interval_histogram histogram;
  EXPECT_EQ(histogram.quantile_us(0.5), 0U);
  for (std::uint64_t us = 1; us <= 1000; ++us) {
    histogram.add(us * 100);
  }
  for (const double part : {0.01, 0.5, 0.95, 0.99}) {
    EXPECT_NEAR(static_cast<double>(histogram.quantile_us(part)), part * 100'000, part * 1'001);
  }
  EXPECT_EQ(histogram.quantile_us(1), 100'000U);
  histogram.add(3'600'000'000);
  EXPECT_EQ(histogram.quantile_us(1), 3'600'000'000U);
  EXPECT_EQ(histogram.max_us(), 3'600'000'000U);
}

}  // namespace
