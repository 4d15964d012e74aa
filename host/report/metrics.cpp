#include "host/report/metrics.h"

#include <fmt/format.h>

#include <array>
#include <functional>
#include <utility>

namespace host {
namespace {

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

}  // namespace

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
