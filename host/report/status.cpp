#include "host/report/status.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "core/time_helpers.h"

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

std::string sweep_text(const sweep_outcome& sweep) {
  if (sweep.applied == 0) {
    return fmt::format("  {}: not reached", sweep.name);
  }
  const std::string shown =
      sweep.shown == 0 ? "never shown by a frame"
                       : fmt::format("shown after at most {} frames{}", sweep.framesMost,
                                     sweep.shown < sweep.applied
                                         ? fmt::format(" ({} times not)", sweep.applied - sweep.shown)
                                         : "");
  return fmt::format("  {}: applied {} times, {}, longest gap {:.1f} ms", sweep.name, sweep.applied, shown,
                     static_cast<double>(sweep.longestGapUs) / 1000);
}

}  // namespace

double seconds(std::uint64_t us) {
  return static_cast<double>(us) * 1e-6;
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
                     totals.isRunning ? "" : "DOWN ", totals.frames, rates.framesPerSecond, totals.missed,
                     age ? fmt::format("{:.0f}ms", *age * 1000) : "-",
                     number_or_dash("{:.0f}", totals.exposureUs), number_or_dash("{:.1f}", totals.gainDb),
                     number_or_dash("{:.1f}", totals.temperatureC), outputs,
                     outputs.empty() ? "" : fmt::format(" {:.1f}MB/s", rates.bytesPerSecond / 1e6));
}

std::string summary(const camera_figures& figures, const std::vector<sweep_outcome>& sweeps) {
  const camera_totals& totals = figures.totals;
  const double between = seconds(figures.intervals.sum_us());
  const auto ms = [&](double part) {
    return static_cast<double>(figures.intervals.quantile_us(part)) / 1000;
  };
  std::string text = fmt::format(
      "{}: {} frames in {:.1f} s, {:.2f}/s, {} missed, {} silent waits, {} device failures\n"
      "  intervals: half within {:.2f} ms, 95% within {:.2f} ms, 99% within {:.2f} ms, longest {:.2f} ms",
      figures.serial, totals.frames, seconds(totals.runningUs),
      between > 0 ? static_cast<double>(figures.intervals.count()) / between : 0.0, totals.missed,
      totals.silentWaits, totals.failures, ms(0.5), ms(0.95), ms(0.99),
      static_cast<double>(figures.intervals.max_us()) / 1000);
  for (const auto& [name, output] : {std::pair{"files", figures.files}, std::pair{"video", figures.video}}) {
    if (output) {
      text += fmt::format("\n  {}: {} frames written, {} dropped, {:.1f} MB", name, output->written,
                          output->dropped, static_cast<double>(output->bytes) / 1e6);
    }
  }
  for (const sweep_outcome& sweep : sweeps) {
    text += "\n" + sweep_text(sweep);
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
                                       {"silent_waits", totals.silentWaits},
                                       {"failures", totals.failures},
                                       {"exposure_us", nullable(totals.exposureUs)},
                                       {"gain_db", nullable(totals.gainDb)},
                                       {"temperature_c", nullable(totals.temperatureC)},
                                       {"files", output_json(figures.files)},
                                       {"video", output_json(figures.video)},
                                       {"bundle", bundle_json(bundleStats)}};
  return line.dump();
}

}  // namespace host
