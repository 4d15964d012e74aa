#include "host/report/status.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "core/time_helpers.h"
#include "host/config/text.h"

namespace host {
namespace {

constexpr std::uint64_t kRateSpanUs = 2'000'000;

std::string number_or_dash(const char* format, const std::optional<float>& value) {
  return value ? fmt::format(fmt::runtime(format), *value) : "-";
}

std::string output_text(const char* name, const std::optional<output_totals>& output) {
  return output ? fmt::format(" {} {}/{}", name, output->written, output->dropped) : "";
}

std::uint64_t bytes_of(const camera_figures& figures) {
  return (figures.files ? figures.files->bytes : 0) + (figures.video ? figures.video->bytes : 0);
}

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

// An estimate is shown as one.
std::string missed_text(const camera_totals& totals) {
  return fmt::format("{}{}", totals.isMissedEstimate ? "about " : "", totals.missed);
}

std::string plural(std::uint64_t count, const char* noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

// What the camera library knows of the stream.
std::string stream_text(const camera_extension_health_record& health) {
  constexpr std::array kTransports = {"simulated", "UDP", "packet ring"};
  const std::string causes = loss_text(health);
  std::string text =
      fmt::format("\n  stream: {}, {}", kTransports.at(std::min<std::size_t>(health.transport, 2)),
                  plural(health.buffers, "buffer"));
  if (health.transport != camera_extension_simulated) {
    text += fmt::format(", packets of {} bytes, {} received, {} lost, {} asked for again, {} received again",
                        health.packet_size, health.packets_received, health.packets_lost,
                        health.packets_requested, health.packets_received_again);
  }
  return text + (causes.empty() ? "" : "\n  lost: " + causes);
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

std::string times_text(std::uint64_t times) {
  return times == 1 ? "once" : fmt::format("{} times", times);
}

// What is known of it: frames carry exposure and gain, but neither gamma nor IR level.
std::string effect_text(const setting_outcome& setting) {
  if (!is_in_frames(setting.settings)) {
    return fmt::format("{}before frame {}", setting.applied == 1 ? "" : "last ", setting.appliedBefore);
  }
  if (setting.readBack == 0) {
    return "never read back";
  }
  if (setting.applied == 1) {
    return fmt::format("before frame {}, read back with frame {}", setting.appliedBefore,
                       setting.readBackWith);
  }
  const bool isAlways = setting.readBack == setting.applied;
  return fmt::format("read back {} within {} frame{}", isAlways ? "each time" : times_text(setting.readBack),
                     setting.framesMost, setting.framesMost == 1 ? "" : "s");
}

std::string setting_text(const setting_outcome& setting) {
  const std::string refusal = setting.refusal.empty() ? "" : fmt::format("refused: {}", setting.refusal);
  if (setting.applied == 0) {
    return fmt::format("  {}: {}", setting.asker, refusal.empty() ? "not reached" : refusal);
  }
  if (!refusal.empty()) {
    return fmt::format("  {}: applied {}, {}", setting.asker, times_text(setting.applied), refusal);
  }
  return fmt::format("  {}: applied {}, {}, longest gap {:.1f} ms", setting.asker,
                     times_text(setting.applied), effect_text(setting),
                     static_cast<double>(setting.longestGapUs) / 1000);
}

}  // namespace

double seconds(std::uint64_t us) {
  return static_cast<double>(us) / 1e6;
}

std::optional<double> since_last_frame(const camera_figures& figures) {
  const std::uint64_t last = figures.totals.lastFrameUs;
  return last == 0 ? std::nullopt : std::optional(seconds(figures.nowUs - std::min(last, figures.nowUs)));
}

camera_figures figures_of(const camera_slot& slot, const frame_writer* files, const frame_writer* video) {
  const auto totals_of = [](const frame_writer* writer) {
    return writer != nullptr ? std::optional(writer->totals()) : std::nullopt;
  };
  return {.serial = slot.serial,
          .nowUs = steady_us(),
          .totals = slot.monitor.totals(),
          .intervals = slot.monitor.histogram(),
          .files = totals_of(files),
          .video = totals_of(video)};
}

rate_meter::rates rate_meter::update(const camera_figures& now) {
  const sample latest{now.nowUs, now.totals.frames, bytes_of(now)};
  while (samples_.size() > 1 && samples_[1].timeUs + kRateSpanUs <= latest.timeUs) {
    samples_.pop_front();
  }
  samples_.push_back(latest);
  const sample& first = samples_.front();
  if (first.timeUs == latest.timeUs) {
    return {};
  }
  const double span = seconds(latest.timeUs - first.timeUs);
  return {static_cast<double>(latest.frames - first.frames) / span,
          static_cast<double>(latest.bytes - first.bytes) / span};
}

std::string status_line(const camera_figures& figures, const rate_meter::rates& rates) {
  const camera_totals& totals = figures.totals;
  const auto age = since_last_frame(figures);
  const std::string outputs = output_text("rec", figures.files) + output_text("video", figures.video);
  return fmt::format("{} {}#{} {:.1f}/s missed {} gap {} {}us {}dB {}C{}{}", figures.serial,
                     totals.isRunning ? "" : "DOWN ", totals.frames, rates.framesPerSecond,
                     missed_text(totals), age ? fmt::format("{:.0f}ms", *age * 1000) : "-",
                     number_or_dash("{:.0f}", totals.exposureUs), number_or_dash("{:.1f}", totals.gainDb),
                     number_or_dash("{:.1f}", totals.temperatureC), outputs,
                     outputs.empty() ? "" : fmt::format(" {:.1f}MB/s", rates.bytesPerSecond / 1e6));
}

std::string summary(const camera_figures& figures, const std::vector<setting_outcome>& settings) {
  const camera_totals& totals = figures.totals;
  const double elapsed = seconds(totals.elapsedUs);
  const auto ms = [&](double part) {
    return static_cast<double>(figures.intervals.quantile_us(part)) / 1000;
  };
  std::string text = fmt::format(
      "{}: {} in {:.1f} s, {:.2f}/s, {} missed, {}, {}\n"
      "  intervals: half within {:.2f} ms, 95% within {:.2f} ms, 99% within {:.2f} ms, longest {:.2f} ms",
      printable(figures.serial), plural(totals.frames, "frame"), elapsed,
      elapsed > 0 ? static_cast<double>(totals.frames) / elapsed : 0.0, missed_text(totals),
      plural(totals.silentWaits, "silent wait"), plural(totals.failures, "device failure"), ms(0.5), ms(0.95),
      ms(0.99), static_cast<double>(figures.intervals.max_us()) / 1000);
  if (totals.health) {
    text += stream_text(*totals.health);
  }
  if (!totals.givenUp.empty()) {
    text += "\n  given up: " + totals.givenUp;
  }
  for (const auto& [name, output] : {std::pair{"files", figures.files}, std::pair{"video", figures.video}}) {
    if (output) {
      text += fmt::format("\n  {}: {} frames written, {} dropped, {:.1f} MB", name, output->written,
                          output->dropped, static_cast<double>(output->bytes) / 1e6);
    }
  }
  for (const setting_outcome& setting : settings) {
    text += "\n" + setting_text(setting);
  }
  return text;
}

std::string stats_line(const camera_figures& figures, const rate_meter::rates& rates,
                       const std::string& bundleStats) {
  const camera_totals& totals = figures.totals;
  const nlohmann::ordered_json line = {{"time_us", Time__GetTimeUsec()},
                                       {"camera", figures.serial},
                                       {"running", totals.isRunning},
                                       {"frames", totals.frames},
                                       {"rate_hz", rates.framesPerSecond},
                                       {"missed", totals.missed},
                                       {"missed_is_estimate", totals.isMissedEstimate},
                                       {"silent_waits", totals.silentWaits},
                                       {"failures", totals.failures},
                                       {"exposure_us", nullable(totals.exposureUs)},
                                       {"gain_db", nullable(totals.gainDb)},
                                       {"temperature_c", nullable(totals.temperatureC)},
                                       {"stream", stream_json(totals.health)},
                                       {"files", output_json(figures.files)},
                                       {"video", output_json(figures.video)},
                                       {"bundle", bundle_json(bundleStats)}};
  // A serial number may be any bytes.
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace host
