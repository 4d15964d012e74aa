// What a change of settings must do to the grey, and when the picture can't tell.
#include <gtest/gtest.h>

#include "host/check/prediction.h"

namespace {

host::grey_histogram uniform(std::size_t grey) {
  host::grey_histogram greys{};
  greys[grey] = 1000;
  return greys;
}

TEST(prediction, follows_exposure_gain_and_gamma_and_leaves_open_what_white_and_black_hide) {
  const host::light_settings from = {.gainDb = 0.0F, .exposureUs = 1000.0F, .gamma = 1.0F, .irLevel = 0};
  const auto changed = [&](host::light_settings change) {
    host::light_settings to = from;
    to.exposureUs = change.exposureUs ? change.exposureUs : to.exposureUs;
    to.gainDb = change.gainDb ? change.gainDb : to.gainDb;
    to.gamma = change.gamma ? change.gamma : to.gamma;
    to.irLevel = change.irLevel ? change.irLevel : to.irLevel;
    return to;
  };
  struct {
    std::size_t grey;
    host::light_settings change;
    bool hasIr;
    double least, most;
  } const cases[] = {
      {50, {.exposureUs = 2000.0F}, false, 100, 100},
      {50, {.gainDb = 6.0206F, .exposureUs = 500.0F}, false, 50, 50},
      {200, {.exposureUs = 2000.0F}, false, 255, 255},
      {64, {.gamma = 2.0F}, false, 127.7, 127.7},
      {255, {.exposureUs = 500.0F}, false, 127.5, 255},
      {0, {.exposureUs = 4000.0F}, false, 0, 4},
      {50, {.irLevel = 1}, true, 50, 255},
      {50, {.irLevel = 1}, false, 50, 50},
      {50, {.exposureUs = 2000.0F, .irLevel = 1}, true, 100, 255},
  };
  for (const auto& each : cases) {
    const auto bounds = host::predict(uniform(each.grey), from, changed(each.change), each.hasIr);
    EXPECT_NEAR(bounds.least, each.least, 0.1) << each.grey;
    EXPECT_NEAR(bounds.most, each.most, 0.1) << each.grey;
  }
  const auto off = host::predict(uniform(50), changed({.irLevel = 1}), from, true);
  EXPECT_NEAR(off.least, 0, 0.1);
  EXPECT_NEAR(off.most, 50, 0.1);
}

TEST(prediction, is_not_judged_within_the_noise_of_the_scene) {
  using enum host::effect_verdict;
  struct {
    host::grey_series seen;
    host::grey_bounds predicted;
    host::effect_verdict verdict;
  } const cases[] = {
      {{{50, 50}, {100, 100}}, {100, 100}, seen},
      {{{50, 50}, {76, 76}}, {100, 100}, seen},  // a black level took the rest
      {{{50, 50}, {60, 60}}, {100, 100}, notSeen},
      {{{50, 50}, {20, 20}}, {100, 100}, notSeen},   // the other way
      {{{50, 50}, {51, 51}}, {51, 51}, notJudged},   // too little to be seen
      {{{50, 90}, {100, 60}}, {95, 95}, notJudged},  // the scene moves
      {{{50, 50}, {50, 50}}, {0, 255}, notJudged},   // anything may happen
  };
  for (const auto& each : cases) {
    const auto judged = host::judge_effect(each.seen, each.predicted);
    EXPECT_EQ(judged.verdict, each.verdict) << judged.text;
  }
}

}  // namespace
