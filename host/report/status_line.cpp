#include "host/report/status_line.h"

#include <fmt/format.h>

namespace host {
namespace {

std::string number_or_dash(const char* format, const std::optional<float>& value) {
  return value ? fmt::format(fmt::runtime(format), *value) : "-";
}

std::string output_text(const char* name, const std::optional<output_totals>& output) {
  return output ? fmt::format(" {} {}/{}", name, output->written, output->dropped) : "";
}

// A simulated camera has none.
std::string packets_text(const std::optional<camera_extension_health_record>& health) {
  return health && health->transport != camera_extension_simulated
             ? fmt::format(" packets lost {} again {}", health->packets_lost, health->packets_received_again)
             : "";
}

}  // namespace

std::string status_line(const camera_snapshot& now, const rate_meter::rates& rates) {
  const camera_status& status = now.status;
  const auto age = since_last_frame(now);
  const std::string outputs = output_text("rec", now.files) + output_text("video", now.video);
  return fmt::format(
      "{} {}#{} {:.1f}/s missed {}{} gap {} {}us {}dB {}C{}{}", now.serial, status.isRunning ? "" : "DOWN ",
      status.frames, rates.framesPerSecond, missed_text(status), packets_text(status.health),
      age ? fmt::format("{:.0f}ms", *age * 1000) : "-", number_or_dash("{:.0f}", status.exposureUs),
      number_or_dash("{:.1f}", status.gainDb), number_or_dash("{:.1f}", status.temperatureC), outputs,
      outputs.empty() ? "" : fmt::format(" {:.1f}MB/s", rates.bytesPerSecond / 1e6));
}

}  // namespace host
