#include "host/report/stats_line.h"

#include <nlohmann/json.hpp>
#include <optional>

#include "core/time_helpers.h"

namespace host {
namespace {

template <class T>
nlohmann::ordered_json nullable(const std::optional<T>& value) {
  return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
}

// The bundle's text as it is where it is JSON, else as a string.
nlohmann::ordered_json bundle_json(const std::string& text) {
  if (text.empty()) {
    return nullptr;
  }
  auto parsed = nlohmann::ordered_json::parse(text, nullptr, false);
  return parsed.is_discarded() ? nlohmann::ordered_json(text) : parsed;
}

nlohmann::ordered_json output_json(const std::optional<output_totals>& output) {
  if (!output) {
    return nullptr;
  }
  return {{"written", output->written}, {"dropped", output->dropped}, {"bytes", output->bytes}};
}

nlohmann::ordered_json stream_json(const std::optional<camera_extension_health_record>& health) {
  if (!health) {
    return nullptr;
  }
  return {{"frames_whole", health->frames_whole},
          {"frames_incomplete", health->frames_incomplete},
          {"frames_missing", health->frames_missing},
          {"frames_refused", health->frames_refused},
          {"frames_dropped", health->frames_dropped},
          {"packets_received", health->packets_received},
          {"packets_lost", health->packets_lost},
          {"packets_requested", health->packets_requested},
          {"packets_received_again", health->packets_received_again},
          {"packets_duplicate", health->packets_duplicate},
          {"packets_foreign", health->packets_foreign},
          {"kernel_drops", health->kernel_drops}};
}

}  // namespace

std::string stats_line(const camera_snapshot& now, const rate_meter::rates& rates,
                       const std::string& bundleStats) {
  const camera_status& status = now.status;
  const nlohmann::ordered_json line = {{"time_us", Time__GetTimeUsec()},
                                       {"camera", now.serial},
                                       {"running", status.isRunning},
                                       {"frames", status.frames},
                                       {"rate_hz", rates.framesPerSecond},
                                       {"missed", status.missed},
                                       {"missed_is_estimate", status.isMissedEstimate},
                                       {"silent_waits", status.silentWaits},
                                       {"failures", status.failures},
                                       {"exposure_us", nullable(status.exposureUs)},
                                       {"gain_db", nullable(status.gainDb)},
                                       {"temperature_c", nullable(status.temperatureC)},
                                       {"stream", stream_json(status.health)},
                                       {"files", output_json(now.files)},
                                       {"video", output_json(now.video)},
                                       {"bundle", bundle_json(bundleStats)}};
  // A serial number may be any bytes.
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace host
