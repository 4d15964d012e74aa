// When sweeps come, and what is seen of them.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "host/acquire/monitor.h"
#include "host/acquire/sweeps.h"
#include "tests/host/support.h"

namespace {

using tests::kCamera;

TEST(sweeps, come_in_order_and_loop) {
  const auto parsed = host::parse_config(kCamera + R"(gamma = 2.0
ir_level = 1
[[sweep]]
after_seconds = 1
exposure_us = 100
[[sweep]]
after_frames = 3
gain_db = 6
loop = true
[[sweep]]
camera = "SIM00001"
after_frames = 2
ir_level = 0
loop = true
)",
                                         "c");
  ASSERT_TRUE(parsed.errors.empty()) << parsed.errors[0];
  host::sweep_schedule schedule(parsed.value.cameras[0], parsed.value.sweeps_of("SIM00001"));
  for (int run = 0; run < 2; ++run) {
    std::string seen;
    std::vector<host::light_settings> settings;
    schedule.start(5'000'000);
    for (std::uint64_t frame = 1; frame <= 25; ++frame) {
      const std::uint64_t nowUs = 5'000'000 + (frame - 1) * 200'000;
      if (const auto step = schedule.due(nowUs, frame)) {
        seen += fmt::format("{}@{} ", step->index, frame);
        settings.push_back(step->settings);
      }
    }
    // The gamma that the start of a run takes away comes first; one second is five frames.
    EXPECT_EQ(seen, "0@1 1@6 2@9 3@11 2@14 3@16 2@19 3@21 2@24 ");
    EXPECT_EQ(settings[0], (host::light_settings{.exposureUs = 5000.0F, .gamma = 2.0F, .irLevel = 1}));
    EXPECT_EQ(settings[1], (host::light_settings{.exposureUs = 100.0F, .irLevel = 1}));
    EXPECT_EQ(settings[2], (host::light_settings{.gainDb = 6.0F, .exposureUs = 100.0F, .irLevel = 1}));
    EXPECT_EQ(settings[3], (host::light_settings{.exposureUs = 100.0F, .irLevel = 0}));
  }
  EXPECT_EQ(schedule.names()[2], "sweep 2: gain 6 dB");
}

TEST(monitor, says_when_frames_showed_a_sweep_and_the_gap_it_made) {
  host::camera_monitor monitor(100'000);
  monitor.run_started({"a"}, 100'000);
  monitor.arrived(1'000'000, -321.0F);
  monitor.sweep_applied({0, {.gainDb = 6.0F, .exposureUs = 1000.0F}});
  std::uint64_t now = 1'000'000;
  for (const auto& [exposure, gain] :
       {std::pair{5000.0F, 0.0F}, {1005.0F, 0.0F}, {1005.0F, 6.05F}, {1005.0F, 6.0F}}) {
    monitor.arrived(now += 350'000, 40.0F);
    monitor.handed_over(
        {.timestampUs = now, .exposureUs = exposure, .gainDb = gain, .width = 1, .height = 1, .format = 1});
  }
  const auto outcome = monitor.sweeps().at(0);
  EXPECT_EQ(outcome.applied, 1U);
  EXPECT_EQ(outcome.shown, 1U);
  EXPECT_EQ(outcome.framesMost, 3U);
  EXPECT_EQ(outcome.longestGapUs, 350'000U);
  EXPECT_EQ(monitor.totals().temperatureC, 40.0F);
}

}  // namespace
