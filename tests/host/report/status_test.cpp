// What people and machines read.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "host/report/metrics.h"
#include "host/report/status.h"
#include "tests/host/support.h"
#include "tests/program.h"

namespace {

using tests::has;
using tests::info_of;

TEST(status, figures_become_lines) {
  host::camera_slot slot("A\"B", 33'333);
  slot.monitor.run_started(33'333);
  slot.monitor.arrived(host::steady_us() - 2'000'000, 41.23F);
  slot.monitor.handed_over(info_of(4, 4));
  const host::camera_figures figures = host::figures_of(slot, nullptr, nullptr);
  const std::string line = host::status_line(figures, {30.04, 1.5e6});
  EXPECT_TRUE(has(line, "#1 30.0/s missed 0 gap 200") && has(line, "5000us 6.0dB 41.2C")) << line;
  const std::string metrics = host::metrics_text({figures});
  EXPECT_TRUE(has(metrics, "\nmediagrabber_exposure_seconds{camera=\"A\\\"B\"} 0.0050005")) << metrics;
  EXPECT_TRUE(has(metrics, "\n# TYPE mediagrabber_frames_total counter\n")) << metrics;
  for (const char* bundle : {"", "no json", R"({"stat": {"temp": 1}})"}) {
    const auto json = nlohmann::json::parse(host::stats_line(figures, {}, bundle));
    EXPECT_EQ(json["camera"], "A\"B");
    EXPECT_EQ(json["bundle"].type_name(), std::string(*bundle == '\0'  ? "null"
                                                      : *bundle == 'n' ? "string"
                                                                       : "object"));
  }
}

}  // namespace
