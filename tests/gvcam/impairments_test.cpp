// Faults of packets: as many as asked for, and the same in every run.
#include "platform/gvcam/impairments.h"

#include <gmock/gmock.h>

#include <cmath>
#include <set>

namespace {

using gvcam::impairments;
using gvcam::sending_order;
using order = std::vector<std::uint32_t>;

constexpr std::uint32_t packets = 1000;

TEST(impairments, as_many_packets_are_lost_as_is_asked_for_alone_or_in_bursts) {
  EXPECT_EQ(sending_order({}, 1, 4), (order{0, 1, 2, 3}));
  EXPECT_TRUE(sending_order({.loss = 1}, 1, packets).empty());
  EXPECT_TRUE(sending_order({.isSilent = true}, 1, packets).empty());
  constexpr std::uint64_t frames = 50;
  for (const auto& [loss, burst] : {std::pair{0.001, 8U}, {0.01, 1U}, {0.1, 1U}, {0.1, 8U}}) {
    double lost = 0;
    double bursts = 0;
    for (std::uint64_t id = 1; id <= frames; ++id) {
      const order sent = sending_order({.loss = loss, .burst = burst}, id, packets);
      lost += static_cast<double>(packets - sent.size());
      for (std::size_t at = 1; at < sent.size(); ++at) {
        bursts += sent[at] != sent[at - 1] + 1 ? 1 : 0;
      }
    }
    const double expected = loss * packets * frames;
    const double deviations = 5 * burst * std::sqrt(expected / burst);
    EXPECT_NEAR(lost, expected, 0.1 * expected + deviations);
    EXPECT_NEAR(bursts * burst, expected, 0.2 * expected + deviations);
  }
}

TEST(impairments, packets_come_late_or_twice_but_none_is_missing) {
  const order late = sending_order({.reorder = 0.1}, 1, packets);
  EXPECT_FALSE(std::ranges::is_sorted(late));
  for (std::size_t at = 0; at < late.size(); ++at) {
    EXPECT_NEAR(static_cast<double>(at), late[at], 10);
  }
  EXPECT_EQ(late.size(), packets);
  EXPECT_EQ(std::set(late.begin(), late.end()).size(), packets);
  const order twice = sending_order({.duplicate = 0.1}, 1, packets);
  EXPECT_NEAR(static_cast<double>(twice.size()), 1.1 * packets, 50);
  EXPECT_EQ(std::set(twice.begin(), twice.end()).size(), packets);
}

TEST(impairments, follow_from_the_seed_and_the_frame) {
  const impairments faults{.loss = 0.1, .reorder = 0.1, .duplicate = 0.1};
  const impairments others{.loss = 0.1, .reorder = 0.1, .duplicate = 0.1, .seed = 2};
  EXPECT_EQ(sending_order(faults, 5, packets), sending_order(faults, 5, packets));
  EXPECT_NE(sending_order(faults, 5, packets), sending_order(others, 5, packets));
  EXPECT_NE(sending_order(faults, 5, packets), sending_order(faults, 6, packets));
}

}  // namespace
