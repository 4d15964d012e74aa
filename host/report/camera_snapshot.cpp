#include "host/report/camera_snapshot.h"

#include <fmt/format.h>

#include <algorithm>

namespace host {
namespace {

constexpr std::uint64_t kRateSpanUs = 2'000'000;

std::uint64_t bytes_of(const camera_snapshot& now) {
  return (now.files ? now.files->bytes : 0) + (now.video ? now.video->bytes : 0);
}

}  // namespace

double seconds(std::uint64_t us) {
  return static_cast<double>(us) / 1e6;
}

std::optional<double> since_last_frame(const camera_snapshot& now) {
  const std::uint64_t last = now.status.lastFrameUs;
  return last == 0 ? std::nullopt : std::optional(seconds(now.nowUs - std::min(last, now.nowUs)));
}

camera_snapshot snapshot_of(const camera_slot& slot, const frame_writer* files, const frame_writer* video) {
  const auto totalsOf = [](const frame_writer* writer) {
    return writer != nullptr ? std::optional(writer->totals()) : std::nullopt;
  };
  return {.serial = slot.serial,
          .nowUs = steady_us(),
          .status = slot.status.now(),
          .intervals = slot.status.histogram(),
          .files = totalsOf(files),
          .video = totalsOf(video)};
}

rate_meter::rates rate_meter::update(const camera_snapshot& now) {
  const sample latest{now.nowUs, now.status.frames, bytes_of(now)};
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

std::string missed_text(const camera_status& status) {
  return fmt::format("{}{}", status.isMissedEstimate ? "about " : "", status.missed);
}

}  // namespace host
