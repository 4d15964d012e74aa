// Which frames count as missed, and what is said of the causes.
#include <gtest/gtest.h>

#include <vector>

#include "host/acquire/loss.h"
#include "tests/program.h"

namespace {

using tests::has;
using record = camera_extension_health_record;

struct frame {
  std::uint64_t afterUs;
  std::uint64_t id;  // 0: the library tells none
};

TEST(missed_frames, are_counted_by_number_and_by_time_where_there_is_none) {
  struct {
    const char* what;
    std::vector<frame> frames;
    std::uint64_t missed;
    bool isEstimate;
  } const cases[] = {
      {"every frame", {{0, 1}, {100, 2}, {100, 3}}, 0, false},
      {"a host that was held up", {{0, 1}, {900, 2}, {5, 3}, {5, 4}}, 0, false},
      {"lost on the way", {{0, 1}, {100, 5}}, 3, false},
      {"numbers that come round", {{0, 65535}, {100, 1}}, 0, false},
      {"an outage in which the camera sent", {{0, 1}, {2'000'000, 20'001}}, 19'999, false},
      {"an outage in which it sent nothing", {{0, 1}, {2'000'000, 2}}, 19'999, false},
      {"times only", {{0, 0}, {100, 0}, {149, 0}, {400, 0}}, 3, true},
  };
  for (const auto& each : cases) {
    host::missed_frames missed;
    missed.run_started(100);
    std::uint64_t nowUs = 1000;
    for (const frame& next : each.frames) {
      missed.arrived(nowUs += next.afterUs, next.id);
    }
    EXPECT_EQ(missed.count(nowUs), each.missed) << each.what;
    EXPECT_EQ(missed.is_estimate(), each.isEstimate) << each.what;
  }
}

TEST(missed_frames, include_the_time_between_two_runs_and_the_outage_that_goes_on) {
  host::missed_frames missed;
  missed.run_started(1000);
  EXPECT_EQ(missed.arrived(10'000'000, 7), std::nullopt);
  EXPECT_EQ(missed.arrived(10'001'000, 8), 1000U);
  EXPECT_EQ(missed.count(10'500'000), 0U) << "not yet";
  EXPECT_EQ(missed.count(12'001'000), 1999U);
  missed.run_started(1000);
  EXPECT_EQ(missed.arrived(13'001'000, 1), std::nullopt) << "the time between two runs is no interval";
  EXPECT_EQ(missed.count(13'001'000), 2999U);
}

TEST(stream_health, goes_on_over_the_openings_of_a_camera) {
  host::stream_health health;
  EXPECT_FALSE(health.total());
  health.reopened();
  record first{};
  first.frames_whole = 10;
  first.frames_dropped = 2;
  health.update(first);
  health.reopened();
  record second{};
  second.frames_whole = 1;
  second.frame_id = 3;
  health.update(second);
  EXPECT_EQ(health.total()->frames_whole, 11U);
  EXPECT_EQ(health.total()->frames_dropped, 2U);
  EXPECT_EQ(health.total()->frame_id, 3U);
}

TEST(loss, is_put_down_to_its_cause) {
  record kernel{};
  kernel.frames_incomplete = 2;
  kernel.kernel_drops = 5;
  kernel.socket_buffer = 2048;
  record path{};
  path.frames_incomplete = 1;
  path.packets_received = 100;
  path.packets_lost = 4;
  record large{};
  large.frames_missing = 3;
  large.packet_size = 9000;
  record late{};
  late.frames_dropped = 1;
  const std::vector<std::pair<record, std::string>> cases = {
      {kernel, "the kernel's buffer of 2 KiB overflowed by 5 packets"},
      {path, "4 packets lost on the path"},
      {large, "no packet of 9000 bytes came"},
      {late, "1 found no free buffer"},
  };
  for (const auto& [each, text] : cases) {
    EXPECT_TRUE(has(host::loss_text(each), text)) << host::loss_text(each);
  }
  EXPECT_EQ(host::loss_text({}), "");
}

TEST(loss, is_said_at_once_and_then_every_ten_seconds) {
  host::loss_reporter reporter;
  record total{};
  EXPECT_EQ(reporter.due(1'000'000, 0, total), std::nullopt);
  total.frames_dropped = 2;
  EXPECT_TRUE(has(reporter.due(2'000'000, 2, total).value_or(""), "2 frames missed: 2 found no free buffer"));
  total.frames_dropped = 5;
  EXPECT_EQ(reporter.due(11'000'000, 5, total), std::nullopt);
  EXPECT_TRUE(has(reporter.due(12'000'000, 5, total).value_or(""), "3 frames missed: 3 found"));
  EXPECT_EQ(reporter.due(99'000'000, 5, total), std::nullopt);
}

}  // namespace
