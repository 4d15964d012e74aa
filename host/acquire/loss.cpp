#include "host/acquire/loss.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace host {
namespace {

using record_type = camera_extension_health_record;

constexpr double kGap = 1.5;  // periods
constexpr double kOutageUs = 1e6;
constexpr double kOutagePeriods = 3;
constexpr std::uint64_t kReportEveryUs = 10'000'000;

constexpr std::array kCounters = {
    &record_type::frames_whole,      &record_type::frames_incomplete, &record_type::frames_missing,
    &record_type::frames_refused,    &record_type::frames_dropped,    &record_type::packets_received,
    &record_type::packets_lost,      &record_type::packets_requested, &record_type::packets_received_again,
    &record_type::packets_duplicate, &record_type::packets_foreign,   &record_type::kernel_drops};

// Why packets did not come, as far as the record tells.
std::string path_text(const record_type& record) {
  if (record.kernel_drops > 0) {
    return fmt::format(
        "the {} of {} KiB overflowed by {} packets: make it larger (net.core.rmem_max), or the machine "
        "less busy",
        record.transport == camera_extension_packet_ring ? "packet ring" : "kernel's buffer",
        record.socket_buffer / 1024, record.kernel_drops);
  }
  if (record.packets_received == 0 && record.packet_size > 1500) {
    return fmt::format("no packet of {} bytes came: the network may not take packets that large",
                       record.packet_size);
  }
  return fmt::format("{} packets lost on the path: look at cable, switch and link speed",
                     record.packets_lost);
}

}  // namespace

void missed_frames::run_started(double periodUs) {
  periodUs_ = periodUs;
  lastId_ = 0;
  isFirstOfRun_ = true;
}

bool missed_frames::is_outage(std::uint64_t intervalUs) const {
  return static_cast<double>(intervalUs) >= std::max(kOutageUs, kOutagePeriods * periodUs_);
}

// Frames that were due within an interval between two arrivals.
std::uint64_t missed_frames::owed(std::uint64_t intervalUs) const {
  const double periods = static_cast<double>(intervalUs) / periodUs_;
  return periods > kGap ? static_cast<std::uint64_t>(std::llround(periods)) - 1 : 0;
}

std::optional<std::uint64_t> missed_frames::arrived(std::uint64_t nowUs, std::uint64_t id) {
  std::optional<std::uint64_t> interval;
  if (lastUs_) {
    const std::uint64_t since = nowUs - *lastUs_;
    const bool isCounted = lastId_ != 0 && id > lastId_;
    const std::uint64_t byNumber = isCounted ? id - lastId_ - 1 : 0;
    const bool isTimed = !isCounted || is_outage(since);
    count_ += std::max(byNumber, isTimed ? owed(since) : 0);
    interval = isFirstOfRun_ ? std::nullopt : std::optional(since);
  }
  isEstimate_ = id == 0;
  isFirstOfRun_ = false;
  lastUs_ = nowUs;
  lastId_ = id;
  return interval;
}

std::uint64_t missed_frames::count(std::uint64_t nowUs) const {
  const std::uint64_t since = lastUs_ && nowUs > *lastUs_ ? nowUs - *lastUs_ : 0;
  return count_ + (is_outage(since) ? owed(since) : 0);
}

void stream_health::reopened() {
  before_ = total_.value_or(record_type{});
}

void stream_health::update(const record_type& record) {
  total_ = record;
  for (const auto counter : kCounters) {
    (*total_).*counter += before_.*counter;
  }
}

record_type difference(const record_type& now, const record_type& before) {
  record_type less = now;
  for (const auto counter : kCounters) {
    less.*counter -= before.*counter;
  }
  return less;
}

std::uint64_t frames_lost(const record_type& record) {
  return record.frames_incomplete + record.frames_missing + record.frames_refused + record.frames_dropped;
}

std::string loss_text(const record_type& record) {
  std::vector<std::string> causes;
  if (const std::uint64_t parts = record.frames_incomplete + record.frames_missing; parts > 0) {
    causes.push_back(fmt::format("{} incomplete, {} without any packet ({})", record.frames_incomplete,
                                 record.frames_missing, path_text(record)));
  }
  if (record.frames_dropped > 0) {
    causes.push_back(fmt::format(
        "{} found no free buffer (this program took the frames before them too late: the machine is busy)",
        record.frames_dropped));
  }
  if (record.frames_refused > 0) {
    causes.push_back(
        fmt::format("{} were of another size or format (somebody else changed the camera's settings)",
                    record.frames_refused));
  }
  return fmt::format("{}", fmt::join(causes, "; "));
}

std::optional<std::string> loss_reporter::due(std::uint64_t nowUs, std::uint64_t missed,
                                              const std::optional<record_type>& total) {
  if (missed == missed_ || (lastUs_ && nowUs - *lastUs_ < kReportEveryUs)) {
    return std::nullopt;
  }
  const record_type lost = difference(total.value_or(record_type{}), total ? record_ : record_type{});
  const std::string causes = loss_text(lost);
  std::string text =
      fmt::format("{} frame{} missed: {}", missed - missed_, missed - missed_ == 1 ? "" : "s",
                  causes.empty() ? "none came for a while, or the camera is slower than configured" : causes);
  lastUs_ = nowUs;
  missed_ = missed;
  record_ = total.value_or(record_type{});
  return text;
}

}  // namespace host
