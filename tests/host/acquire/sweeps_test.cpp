// When sweeps come.
#include <fmt/format.h>
#include <gtest/gtest.h>

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
    EXPECT_EQ(settings[0], (host::light_settings{.gamma = 2.0F}));
    EXPECT_EQ(settings[3], (host::light_settings{.irLevel = 0}));
  }
  schedule.drop(2);
  schedule.start(5'000'000);
  std::string seen;
  for (std::uint64_t frame = 1; frame <= 12; ++frame) {
    const auto step = schedule.due(5'000'000 + (frame - 1) * 200'000, frame);
    seen += step ? fmt::format("{}@{} ", step->index, frame) : "";
  }
  EXPECT_EQ(seen, "0@1 1@6 3@8 3@10 3@12 ") << "one that is dropped does not come again";
  EXPECT_EQ(schedule.names()[2], "sweep 2: gain 6 dB");
}

}  // namespace
