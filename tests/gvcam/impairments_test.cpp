// What happens to packets on purpose: as often as was asked for, and the same in every run.
#include "platform/gvcam/impairments.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>

namespace {

using gvcam::fate_of_resend;
using gvcam::impairments;
using gvcam::resend_fate;
using gvcam::sending_order;
using order = std::vector<std::uint32_t>;

constexpr std::uint32_t packets = 1000;
constexpr std::uint64_t frames = 50;

order in_order() {
  order all(packets);
  std::iota(all.begin(), all.end(), 0U);
  return all;
}

TEST(impairments, nothing_happens_unless_it_is_asked_for) {
  EXPECT_EQ(sending_order({}, 1, packets), in_order());
  EXPECT_EQ(fate_of_resend({}, 1, 2, 3), resend_fate::sent);
  EXPECT_TRUE(sending_order({.isSilent = true}, 1, packets).empty());
}

TEST(impairments, as_many_packets_are_lost_as_is_asked_for_alone_or_in_bursts) {
  for (const double loss : {0.001, 0.01, 0.1}) {
    for (const unsigned burst : {1U, 8U}) {
      const impairments faults{.loss = loss, .burst = burst};
      std::size_t lost = 0;
      std::size_t runs = 0;  // of lost packets
      for (std::uint64_t id = 1; id <= frames; ++id) {
        const order sent = sending_order(faults, id, packets);
        EXPECT_TRUE(std::ranges::is_sorted(sent));
        lost += packets - sent.size();
        for (std::size_t at = 1; at < sent.size(); ++at) {
          runs += sent[at] != sent[at - 1] + 1 ? 1 : 0;
        }
      }
      const double expected = loss * packets * frames;
      EXPECT_NEAR(static_cast<double>(lost), expected,
                  0.1 * expected + 5 * burst * std::sqrt(expected / burst));
      EXPECT_NEAR(static_cast<double>(runs) * burst, expected,
                  0.2 * expected + 5 * burst * std::sqrt(expected / burst));
    }
  }
  EXPECT_TRUE(sending_order({.loss = 1}, 1, packets).empty());
}

TEST(impairments, packets_come_late_or_twice_but_none_is_missing) {
  const order late = sending_order({.reorder = 0.1}, 1, packets);
  EXPECT_FALSE(std::ranges::is_sorted(late));
  for (std::size_t at = 0; at < late.size(); ++at) {
    EXPECT_LE(at > late[at] ? at - late[at] : late[at] - at, 10U);
  }
  EXPECT_THAT(late, testing::UnorderedElementsAreArray(in_order()));
  const order twice = sending_order({.duplicate = 0.1}, 1, packets);
  EXPECT_NEAR(static_cast<double>(twice.size()), 1.1 * packets, 50);
  EXPECT_EQ(std::set(twice.begin(), twice.end()).size(), packets);
}

TEST(impairments, the_same_seed_has_the_same_faults_and_another_one_has_others) {
  const impairments faults{.loss = 0.1, .reorder = 0.1, .duplicate = 0.1};
  impairments others = faults;
  others.seed = 2;
  EXPECT_EQ(sending_order(faults, 5, packets), sending_order(faults, 5, packets));
  EXPECT_NE(sending_order(faults, 5, packets), sending_order(others, 5, packets));
  EXPECT_NE(sending_order(faults, 5, packets), sending_order(faults, 6, packets));
}

TEST(impairments, a_refused_packet_stays_refused_and_a_lost_one_can_be_asked_for_again) {
  const impairments faults{.loss = 0.3, .refuse = 0.3};
  std::size_t refused = 0;
  for (std::uint32_t packet = 0; packet < packets; ++packet) {
    std::set<resend_fate> fates;
    for (std::uint64_t attempt = 1; attempt <= 30; ++attempt) {
      fates.insert(fate_of_resend(faults, 1, packet, attempt));
    }
    refused += fates.contains(resend_fate::refused) ? 1 : 0;
    EXPECT_TRUE(fates == std::set{resend_fate::refused} || fates.contains(resend_fate::sent)) << packet;
  }
  EXPECT_NEAR(static_cast<double>(refused), 0.3 * packets, 75);
}

}  // namespace
