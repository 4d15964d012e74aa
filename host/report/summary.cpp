#include "host/report/summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "host/config/text.h"

namespace host {
namespace {

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
    return fmt::format("  {}: {}", setting.requester, refusal.empty() ? "not reached" : refusal);
  }
  if (!refusal.empty()) {
    return fmt::format("  {}: applied {}, {}", setting.requester, times_text(setting.applied), refusal);
  }
  return fmt::format("  {}: applied {}, {}, longest gap {:.1f} ms", setting.requester,
                     times_text(setting.applied), effect_text(setting),
                     static_cast<double>(setting.longestGapUs) / 1000);
}

}  // namespace

std::string summary(const camera_snapshot& now, const std::vector<setting_outcome>& settings) {
  const camera_status& status = now.status;
  const double elapsed = seconds(status.elapsedUs);
  const auto ms = [&](double part) { return static_cast<double>(now.intervals.quantile_us(part)) / 1000; };
  std::string text = fmt::format(
      "{}: {} in {:.1f} s, {:.2f}/s, {} missed, {}, {}\n"
      "  intervals: half within {:.2f} ms, 95% within {:.2f} ms, 99% within {:.2f} ms, longest {:.2f} ms",
      printable(now.serial), plural(status.frames, "frame"), elapsed,
      elapsed > 0 ? static_cast<double>(status.frames) / elapsed : 0.0, missed_text(status),
      plural(status.silentWaits, "silent wait"), plural(status.failures, "device failure"), ms(0.5), ms(0.95),
      ms(0.99), static_cast<double>(now.intervals.max_us()) / 1000);
  if (status.health) {
    text += stream_text(*status.health);
  }
  if (!status.givenUp.empty()) {
    text += "\n  given up: " + status.givenUp;
  }
  for (const auto& [name, output] : {std::pair{"files", now.files}, std::pair{"video", now.video}}) {
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

}  // namespace host
