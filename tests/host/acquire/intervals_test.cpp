// How evenly frames come.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "host/acquire/intervals.h"

namespace {

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
  EXPECT_NEAR(static_cast<double>(histogram.count_up_to(50'000)), 500, 6);
  EXPECT_EQ(histogram.count_up_to(100'000), 1000U);
  histogram.add(3'600'000'000);
  EXPECT_EQ(histogram.quantile_us(1), 3'600'000'000U);
  EXPECT_EQ(histogram.max_us(), 3'600'000'000U);
}

}  // namespace
