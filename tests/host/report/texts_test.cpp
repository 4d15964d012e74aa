// What people and machines read.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "host/report/metrics.h"
#include "host/report/stats_line.h"
#include "host/report/status_line.h"
#include "host/report/summary.h"
#include "tests/host/parts.h"
#include "tests/host/support.h"

namespace {

using tests::info_of;

TEST(texts, show_what_a_camera_does) {
  host::camera_slot slot("A\"B\xff");
  slot.status.run_started(33'333);
  camera_extension_health_record record{};
  record.frames_dropped = 4;
  record.frame_id = 9;
  slot.status.health(record);
  slot.status.arrived(host::steady_us() - 250'000, 41.23F);
  record.frame_id = 12;
  record.transport = camera_extension_udp;
  record.packets_lost = 3;
  record.packets_received_again = 120;
  slot.status.health(record);
  slot.status.arrived(host::steady_us() - 100'000, 41.23F);
  slot.status.handed_over(info_of(4, 4));
  slot.status.failed(host::failure_reason::silence);
  const host::camera_snapshot now = host::snapshot_of(slot, nullptr, nullptr);
  const std::string line = host::status_line(now, {30.04, 1.5e6});
  tests::expect_parts(line, {"#2 30.0/s missed 2 packets lost 3 again 120 gap 10", "5000us 6.0dB 41.2C"});
  const std::string summary = host::summary(now, {});
  tests::expect_parts(summary, {"2 missed, 0 silent waits", "lost: 4 found no free buffer"});
  const std::string metrics = host::metrics_text({now});
  tests::expect_parts(
      metrics,
      {"\nmediagrabber_exposure_seconds{camera=\"A\\\"B", "# TYPE mediagrabber_frames_total counter\n",
       "\"} 0.0050005", "reason=\"dropped\"} 4\n", "reason=\"silence\"} 1\n", "reason=\"setting\"} 0\n",
       "mediagrabber_frame_interval_seconds_bucket{camera=", "le=\"0.2\"} 1\n", "le=\"+Inf\"} 1\n"});
  for (const auto& [bundle, type] : std::map<std::string, std::string>{
           {"", "null"}, {"no json", "string"}, {R"({"stat": {"temp": 1}})", "object"}}) {
    const auto json = nlohmann::json::parse(host::stats_line(now, {}, bundle));
    EXPECT_EQ(json["stream"]["frames_dropped"], 4);
    EXPECT_EQ(json["bundle"].type_name(), type);
  }
}

}  // namespace
