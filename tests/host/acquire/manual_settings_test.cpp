// Settings by hand: what is undone, what a new device gets again, and when the sweeps go on.
#include "host/acquire/manual_settings.h"
#include "host/acquire/sweeps.h"

#include <gtest/gtest.h>

namespace {

using host::light_settings;

const light_settings kConfigured = {.exposureUs = 5000.0F, .gamma = 2.0F, .irLevel = 0};

class manual_settings : public testing::Test {
 protected:
  manual_settings() { start(); }

  void start() {
    queue.run_started({}, kConfigured, {.gainDb = host::setting_range{0, 24}});
    manual.run_started(kConfigured);
    queue.handed_over(
        {.timestampUs = 0, .exposureUs = 5000, .gainDb = 3, .width = 1, .height = 1, .format = 1}, 1);
  }
  // What the camera gets of all that was asked for, one after the other.
  light_settings camera_gets() {
    light_settings all;
    for (auto next = queue.take(1); next; next = queue.take(1)) {
      all = host::merged(all, *next);
    }
    return all;
  }

  host::settings_queue queue;
  host::manual_settings manual{queue};
};

TEST_F(manual_settings, are_undone_one_by_one_and_together) {
  EXPECT_FALSE(manual.undo("A").reasons.empty());
  manual.apply("A", {.gainDb = 6.0F});
  manual.apply("B", {.exposureUs = 100.0F, .irLevel = 1});
  EXPECT_EQ(manual.apply("B", {.gainDb = 25.0F}).reasons.size(), 1U) << "refused: nothing to undo";
  camera_gets();
  manual.undo("A");
  EXPECT_EQ(camera_gets(), (light_settings{.exposureUs = 5000, .irLevel = 0})) << "gain stays as it is";
  manual.undo("A");
  EXPECT_EQ(camera_gets().gainDb, 3.0F) << "as the frames had it before";
  EXPECT_FALSE(manual.can_undo());
  manual.apply("A", {.gainDb = 9.0F, .gamma = 1.0F});
  camera_gets();
  manual.restore("A");
  EXPECT_EQ(camera_gets(), (light_settings{.gainDb = 3, .exposureUs = 5000, .gamma = 2, .irLevel = 0}));
  manual.undo("A");
  EXPECT_EQ(camera_gets().gainDb, 9.0F) << "the way back can be undone, too";
}

TEST_F(manual_settings, are_given_again_to_a_new_device_until_the_sweeps_go_on) {
  EXPECT_FALSE(manual.are_sweeps_held());
  manual.apply("A", {.gainDb = 6.0F});
  manual.apply("A", {.exposureUs = 100.0F});
  EXPECT_TRUE(manual.are_sweeps_held());
  start();
  EXPECT_EQ(camera_gets(), (light_settings{.gainDb = 6, .exposureUs = 100, .gamma = 2, .irLevel = 0}));
  manual.restore("A");
  start();
  EXPECT_EQ(camera_gets(), (light_settings{.exposureUs = 5000, .gamma = 2, .irLevel = 0}));
  EXPECT_TRUE(manual.are_sweeps_held());
  manual.resume();
  start();
  EXPECT_EQ(queue.take(1), std::nullopt);
  EXPECT_FALSE(manual.are_sweeps_held());
}

TEST_F(manual_settings, that_ended_the_device_are_not_given_again) {
  manual.apply("A", {.gainDb = 6.0F});
  manual.apply("B", {.exposureUs = 100.0F});
  manual.refused("A");
  manual.refused("B");
  start();
  EXPECT_EQ(camera_gets(), (light_settings{.gainDb = 6, .exposureUs = 5000, .gamma = 2, .irLevel = 0}));
}

}  // namespace
