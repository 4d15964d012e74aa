#include "host/report/metrics.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <array>
#include <limits>
#include <utility>

#include "host/config/text.h"

namespace host {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using health_record = camera_extension_health_record;

// One figure of a camera; none where it is not known.
struct figure {
  const char* name;
  MetricType type;
  const char* help;
  std::optional<double> (*value)(const camera_snapshot&);
};

std::optional<double> widened(const std::optional<float>& value, double factor = 1) {
  return value ? std::optional(static_cast<double>(*value) * factor) : std::nullopt;
}

double number(std::uint64_t count) {
  return static_cast<double>(count);
}

// clang-format off
constexpr std::array kFigures = {
    figure{"up", MetricType::Gauge, "1 while the camera's device runs, else 0.",
           [](const camera_snapshot& c) { return std::optional(c.status.isRunning ? 1.0 : 0.0); }},
    figure{"frames_total", MetricType::Counter, "Frames that arrived whole.",
           [](const camera_snapshot& c) { return std::optional(number(c.status.frames)); }},
    figure{"frames_missed_total", MetricType::Counter,
           "Frames that were due and did not arrive: by the camera's frame numbers, and by time over outages.",
           [](const camera_snapshot& c) { return std::optional(number(c.status.missed)); }},
    figure{"frames_missed_is_estimate", MetricType::Gauge,
           "1 when the camera library tells no frame numbers and arrival times are judged instead.",
           [](const camera_snapshot& c) { return std::optional(c.status.isMissedEstimate ? 1.0 : 0.0); }},
    figure{"silent_waits_total", MetricType::Counter, "Waits of at most a second that brought no usable frame.",
           [](const camera_snapshot& c) { return std::optional(number(c.status.silentWaits)); }},
    figure{"given_up", MetricType::Gauge, "1 when no device is created any more, as the camera can't take its configuration.",
           [](const camera_snapshot& c) { return std::optional(c.status.givenUp.empty() ? 0.0 : 1.0); }},
    figure{"last_frame_age_seconds", MetricType::Gauge, "Time since the last frame arrived.",
           [](const camera_snapshot& c) { return since_last_frame(c); }},
    figure{"exposure_seconds", MetricType::Gauge, "Exposure time of the last frame.",
           [](const camera_snapshot& c) { return widened(c.status.exposureUs, 1e-6); }},
    figure{"gain_decibels", MetricType::Gauge, "Gain of the last frame.",
           [](const camera_snapshot& c) { return widened(c.status.gainDb); }},
    figure{"sensor_temperature_celsius", MetricType::Gauge, "Temperature of the sensor.",
           [](const camera_snapshot& c) { return widened(c.status.temperatureC); }},
};

// Counters of the camera library, each under a label of its family.
struct health_counter {
  const char* label;
  std::uint64_t health_record::*count;
};

constexpr std::array kLostFrames = {health_counter{"incomplete", &health_record::frames_incomplete},
                                    health_counter{"missing", &health_record::frames_missing},
                                    health_counter{"refused", &health_record::frames_refused},
                                    health_counter{"dropped", &health_record::frames_dropped}};
constexpr std::array kPackets = {health_counter{"received", &health_record::packets_received},
                                 health_counter{"lost", &health_record::packets_lost},
                                 health_counter{"requested", &health_record::packets_requested},
                                 health_counter{"received_again", &health_record::packets_received_again},
                                 health_counter{"duplicate", &health_record::packets_duplicate},
                                 health_counter{"foreign", &health_record::packets_foreign},
                                 health_counter{"dropped_by_kernel", &health_record::kernel_drops}};

// In the order of failure_reason.
constexpr std::array<const char*, kFailureReasons> kFailureLabels = {
    "configuration", "unavailable", "creation", "silence", "setting", "memory", "run"};

struct output_counter {
  const char* name;
  const char* help;
  std::uint64_t output_totals::*count;
};

constexpr std::array kOutputCounters = {
    output_counter{"output_frames_total", "Frames written.", &output_totals::written},
    output_counter{"output_frames_dropped_total", "Frames that were to be written and were not.", &output_totals::dropped},
    output_counter{"output_bytes_total", "Bytes written.", &output_totals::bytes},
};
// clang-format on

// Bounds of the histogram of intervals, microseconds: from cameras of a thousand frames a second to an
// outage.
constexpr std::array<std::uint64_t, 13> kIntervalBoundsUs = {
    1'000,   2'000,   5'000,     10'000,    20'000,    50'000,    100'000,
    200'000, 500'000, 1'000'000, 2'000'000, 5'000'000, 10'000'000};

MetricFamily family(const char* name, const char* help, MetricType type) {
  return {.name = std::string("mediagrabber_") + name, .help = help, .type = type, .metric = {}};
}

ClientMetric metric_of(const camera_snapshot& camera, MetricType type, double value) {
  ClientMetric metric;
  metric.label = {{"camera", printable(camera.serial)}};
  (type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
  return metric;
}

MetricFamily family_of(const figure& each, const std::vector<camera_snapshot>& cameras) {
  MetricFamily all = family(each.name, each.help, each.type);
  for (const camera_snapshot& camera : cameras) {
    if (const auto value = each.value(camera)) {
      all.metric.push_back(metric_of(camera, each.type, *value));
    }
  }
  return all;
}

template <class Counters>
MetricFamily family_of(MetricFamily all, const char* label, const Counters& counters,
                       const std::vector<camera_snapshot>& cameras) {
  for (const camera_snapshot& camera : cameras) {
    for (const health_counter& each : counters) {
      if (camera.status.health) {
        ClientMetric metric = metric_of(camera, all.type, number((*camera.status.health).*each.count));
        metric.label.push_back({label, each.label});
        all.metric.push_back(std::move(metric));
      }
    }
  }
  return all;
}

MetricFamily failures_of(const std::vector<camera_snapshot>& cameras) {
  MetricFamily all =
      family("device_failures_total", "Devices that could not be created, or whose run failed, by reason.",
             MetricType::Counter);
  for (const camera_snapshot& camera : cameras) {
    for (std::size_t at = 0; at < kFailureReasons; ++at) {
      all.metric.push_back(metric_of(camera, all.type, number(camera.status.failuresByReason[at])));
      all.metric.back().label.push_back({"reason", kFailureLabels[at]});
    }
  }
  return all;
}

MetricFamily family_of(const output_counter& each, const std::vector<camera_snapshot>& cameras) {
  MetricFamily all = family(each.name, each.help, MetricType::Counter);
  for (const camera_snapshot& camera : cameras) {
    for (const auto& [output, totals] :
         {std::pair{"files", camera.files}, std::pair{"video", camera.video}}) {
      if (totals) {
        ClientMetric metric = metric_of(camera, all.type, number((*totals).*each.count));
        metric.label.push_back({"output", output});
        all.metric.push_back(std::move(metric));
      }
    }
  }
  return all;
}

MetricFamily intervals_of(const std::vector<camera_snapshot>& cameras) {
  MetricFamily all = family("frame_interval_seconds", "Time between the arrivals of two frames of a run.",
                            MetricType::Histogram);
  for (const camera_snapshot& camera : cameras) {
    ClientMetric metric;
    metric.label = {{"camera", printable(camera.serial)}};
    metric.histogram.sample_count = camera.intervals.count();
    metric.histogram.sample_sum = seconds(camera.intervals.sum_us());
    for (const std::uint64_t bound : kIntervalBoundsUs) {
      metric.histogram.bucket.push_back(
          {camera.intervals.count_up_to(bound), static_cast<double>(bound) / 1e6});
    }
    metric.histogram.bucket.push_back({camera.intervals.count(), std::numeric_limits<double>::infinity()});
    all.metric.push_back(std::move(metric));
  }
  return all;
}

}  // namespace

std::string metrics_text(const std::vector<camera_snapshot>& cameras) {
  std::vector<MetricFamily> families;
  for (const figure& each : kFigures) {
    families.push_back(family_of(each, cameras));
  }
  families.push_back(failures_of(cameras));
  families.push_back(family_of(
      family("frames_lost_total", "Frames that the camera sent and that did not arrive whole, by reason.",
             MetricType::Counter),
      "reason", kLostFrames, cameras));
  families.push_back(family_of(
      family("packets_total", "Packets of the stream, by what became of them. A packet may be in several.",
             MetricType::Counter),
      "kind", kPackets, cameras));
  for (const output_counter& each : kOutputCounters) {
    families.push_back(family_of(each, cameras));
  }
  families.push_back(intervals_of(cameras));
  return prometheus::TextSerializer().Serialize(families);
}

}  // namespace host
