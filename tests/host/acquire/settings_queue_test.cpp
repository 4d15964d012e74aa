// The queue of settings: what is refused, in which order the rest comes, and what is known of it.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "host/acquire/settings_queue.h"

namespace {

using lines = std::vector<std::string>;

const host::light_settings kInitial = {.exposureUs = 5000.0F, .irLevel = 1};

host::cam_frame_info frame_with(float exposureUs, float gainDb) {
  return {.timestampUs = 0, .exposureUs = exposureUs, .gainDb = gainDb, .width = 1, .height = 1, .format = 1};
}

TEST(settings_queue, refuses_what_is_beyond_the_limits_with_the_limit) {
  const auto feature = [](const char* name, const char* min, const char* max) {
    host::feature_record record;
    record.name = name;
    record.min = min;
    record.max = max;
    return record;
  };
  const host::light_limits limits =
      host::limits_of({feature("ExposureTime", "10", "2000000"), feature("Gain", "1", "16"),
                       feature("gammaCorrection", "0.1", "4")});
  host::settings_queue queue;
  struct {
    host::light_settings settings;
    lines reasons;
  } const cases[] = {
      {{.gainDb = 24.08F, .exposureUs = 10.0F, .gamma = 4.005F}, {}},
      {{.gainDb = 30.0F}, {"gain_db = 30: the camera takes 0 to 24.08 dB"}},
      {{.exposureUs = 5.0F, .gamma = 5.0F},
       {"exposure_us = 5: the camera takes 10 to 2000000 us", "gamma = 5: the camera takes 0.1 to 4"}},
  };
  for (const auto& each : cases) {
    queue.run_started({}, kInitial, limits);
    EXPECT_EQ(queue.add("a", each.settings).reasons, each.reasons);
    EXPECT_EQ(queue.take(1).has_value(), each.reasons.empty());
  }
  queue.run_started({}, kInitial, {});
  EXPECT_EQ(queue.add("a", {.gainDb = 99.0F}).reasons, lines()) << "limits that are not known refuse nothing";
  for (std::size_t at = 1; at < host::settings_queue::kWaitingMax; ++at) {
    queue.add("a", {.gainDb = 1.0F});
  }
  EXPECT_EQ(queue.add("a", {.gainDb = 1.0F}).reasons, lines({"64 requests wait already"}));
}

TEST(settings_queue, gives_complete_settings_in_one_order) {
  host::settings_queue queue;
  queue.run_started({"a", "b"}, kInitial, {});
  queue.add("a", {.gainDb = 6.0F});
  queue.add("b", {.exposureUs = 100.0F, .irLevel = 0});
  queue.add("a", {.gamma = 2.0F});
  EXPECT_EQ(queue.take(1), (host::light_settings{.gainDb = 6.0F, .exposureUs = 5000.0F, .irLevel = 1}));
  EXPECT_EQ(queue.take(2), (host::light_settings{.exposureUs = 100.0F, .irLevel = 0}));
  EXPECT_EQ(queue.take(3), (host::light_settings{.exposureUs = 100.0F, .gamma = 2.0F, .irLevel = 0}));
  EXPECT_EQ(queue.take(4), std::nullopt);
  EXPECT_EQ(queue.exposure_us(), 100.0F);
  queue.add("a", {.gamma = 1.0F});
  queue.run_started({"a", "b"}, kInitial, {});
  EXPECT_EQ(queue.take(5), std::nullopt) << "what waited for the run before is gone";
}

TEST(settings_queue, knows_with_which_frame_settings_were_read_back) {
  host::settings_queue queue;
  queue.run_started({"a", "b", "c"}, kInitial, {});
  queue.add("a", {.gainDb = 6.0F, .exposureUs = 1000.0F});
  queue.take(10);
  std::uint64_t number = 10;
  for (const auto& [exposure, gain] :
       {std::pair{5000.0F, 0.0F}, {1005.0F, 0.0F}, {1005.0F, 6.05F}, {1005.0F, 6.0F}}) {
    queue.arrived(number * 1000);
    queue.handed_over(frame_with(exposure, gain), number++);
  }
  queue.add("b", {.gamma = 2.0F});
  queue.take(20);
  queue.handed_over(frame_with(1000, 6), 20);
  const auto outcomes = queue.outcomes();
  EXPECT_EQ(outcomes[0].applied, 1U);
  EXPECT_EQ(outcomes[0].readBackWith, 12U);
  EXPECT_EQ(outcomes[0].framesMost, 3U);
  EXPECT_EQ(outcomes[0].longestGapUs, 13'000U);
  EXPECT_EQ(outcomes[1].appliedBefore, 20U);
  EXPECT_EQ(outcomes[1].readBack, 0U) << "no frame tells its gamma";
  EXPECT_EQ(outcomes[2].applied, 0U);
  const auto account = queue.account();
  ASSERT_EQ(account.size(), 2U);
  EXPECT_EQ(account[0].requester + account[1].requester, "ab");
}

TEST(settings_queue, names_the_request_that_a_run_did_not_survive) {
  host::settings_queue queue;
  queue.run_started({}, kInitial, {});
  EXPECT_EQ(queue.run_failed("why"), std::nullopt);
  queue.add("a", {.gainDb = 6.0F});
  queue.take(1);
  EXPECT_EQ(queue.run_failed("why"), "a");
  EXPECT_EQ(queue.account().back().refusal, "why");
  queue.run_started({}, kInitial, {});
  queue.add("a", {.gainDb = 6.0F});
  queue.take(2);
  queue.survived();
  EXPECT_EQ(queue.run_failed("why"), std::nullopt) << "something else ended it";
}

}  // namespace
