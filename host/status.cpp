#include "host/status.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <functional>
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

double seconds(std::uint64_t us) {
  return static_cast<double>(us) * 1e-6;
}

std::optional<double> since_last_frame(const camera_figures& figures) {
  const std::uint64_t last = figures.totals.lastFrameUs;
  return last == 0 ? std::nullopt : std::optional(seconds(figures.nowUs - std::min(last, figures.nowUs)));
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

std::string label_text(const std::string& text) {
  std::string escaped;
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') {
      escaped += '\\';
    }
    escaped += letter;
  }
  return escaped;
}

struct metric {
  const char* name;
  const char* type;
  const char* help;
  std::function<std::optional<double>(const camera_figures&)> value;
};

std::optional<double> widened(const std::optional<float>& value, double factor = 1) {
  return value ? std::optional(static_cast<double>(*value) * factor) : std::nullopt;
}

// clang-format off
const std::array kMetrics = {
    metric{"up", "gauge", "Whether the camera's device runs.",
           [](const camera_figures& c) { return c.totals.isRunning ? 1.0 : 0.0; }},
    metric{"frames_total", "counter", "Frames that arrived.",
           [](const camera_figures& c) { return static_cast<double>(c.totals.frames); }},
    metric{"frames_missed_total", "counter", "Frames missed, judged by arrival times and the configured rate.",
           [](const camera_figures& c) { return static_cast<double>(c.totals.missed); }},
    metric{"silent_waits_total", "counter", "Waits of a second without a usable frame.",
           [](const camera_figures& c) { return static_cast<double>(c.totals.silentWaits); }},
    metric{"device_failures_total", "counter", "Devices that could not be created or failed.",
           [](const camera_figures& c) { return static_cast<double>(c.totals.failures); }},
    metric{"last_frame_age_seconds", "gauge", "Time since the last frame arrived.",
           [](const camera_figures& c) { return since_last_frame(c); }},
    metric{"exposure_seconds", "gauge", "Exposure time of the last frame.",
           [](const camera_figures& c) { return widened(c.totals.exposureUs, 1e-6); }},
    metric{"gain_decibels", "gauge", "Gain of the last frame.",
           [](const camera_figures& c) { return widened(c.totals.gainDb); }},
    metric{"sensor_temperature_celsius", "gauge", "Temperature of the sensor.",
           [](const camera_figures& c) { return widened(c.totals.temperatureC); }},
};

const std::array kOutputMetrics = {
    std::pair{"output_frames_total", std::pair{"Frames written.", &output_totals::written}},
    std::pair{"output_frames_dropped_total",
              std::pair{"Frames that were to be written and were not.", &output_totals::dropped}},
    std::pair{"output_bytes_total", std::pair{"Bytes written.", &output_totals::bytes}},
};
// clang-format on

void append_head(std::string& text, const char* name, const char* type, const char* help) {
  text += fmt::format("# HELP mediagrabber_{0} {1}\n# TYPE mediagrabber_{0} {2}\n", name, help, type);
}

void append_outputs(std::string& text, const std::vector<camera_figures>& cameras) {
  for (const auto& [name, what] : kOutputMetrics) {
    append_head(text, name, "counter", what.first);
    for (const camera_figures& camera : cameras) {
      for (const auto& [output, totals] :
           {std::pair{"files", camera.files}, std::pair{"video", camera.video}}) {
        if (totals) {
          text += fmt::format("mediagrabber_{}{{camera=\"{}\",output=\"{}\"}} {}\n", name,
                              label_text(camera.serial), output, (*totals).*what.second);
        }
      }
    }
  }
}

void append_intervals(std::string& text, const std::vector<camera_figures>& cameras) {
  constexpr const char* kName = "frame_interval_seconds";
  append_head(text, kName, "summary", "Time between the arrivals of two frames, since the start.");
  for (const camera_figures& camera : cameras) {
    const std::string label = label_text(camera.serial);
    for (const double part : {0.5, 0.95, 0.99}) {
      text += fmt::format("mediagrabber_{}{{camera=\"{}\",quantile=\"{}\"}} {}\n", kName, label, part,
                          seconds(camera.intervals.quantile_us(part)));
    }
    text += fmt::format(
        "mediagrabber_{0}_sum{{camera=\"{1}\"}} {2}\nmediagrabber_{0}_count{{camera=\"{1}\"}} {3}\n", kName,
        label, seconds(camera.intervals.sum_us()), camera.intervals.count());
  }
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

camera_figures figures_of(const camera_slot& slot) {
  const auto totals_of = [](const std::unique_ptr<frame_writer>& writer) {
    return writer ? std::optional(writer->totals()) : std::nullopt;
  };
  return {.serial = slot.serial,
          .nowUs = steady_us(),
          .totals = slot.monitor.totals(),
          .intervals = slot.monitor.histogram(),
          .files = totals_of(slot.files),
          .video = totals_of(slot.video)};
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

std::string metrics_text(const std::vector<camera_figures>& cameras) {
  std::string text;
  for (const metric& each : kMetrics) {
    append_head(text, each.name, each.type, each.help);
    for (const camera_figures& camera : cameras) {
      if (const auto value = each.value(camera)) {
        text += fmt::format("mediagrabber_{}{{camera=\"{}\"}} {}\n", each.name, label_text(camera.serial),
                            *value);
      }
    }
  }
  append_outputs(text, cameras);
  append_intervals(text, cameras);
  return text;
}

}  // namespace host
