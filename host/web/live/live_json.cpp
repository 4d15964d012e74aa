#include "host/web/live/live_json.h"

#include <fmt/format.h>

#include <array>
#include <nlohmann/json.hpp>
#include <optional>

namespace host {
namespace {

using json = nlohmann::ordered_json;

constexpr std::array kPhases = {"starting", "running", "silent", "down", "given_up"};
constexpr std::array kStates = {"waiting", "applied", "read_back", "refused"};

template <class T>
json nullable(const std::optional<T>& value) {
  return value ? json(*value) : json(nullptr);
}

json control_object(const setting_control& control) {
  return {{"key", control.key},
          {"unit", control.unit},
          {"min", control.limits.min},
          {"max", control.limits.max},
          {"limits", control.limits.areOfCamera ? "camera" : "configuration"},
          {"whole", control.isWhole},
          {"in_force", nullable(control.inForce)},
          {"configured", nullable(control.configured)}};
}

json entry_object(const setting_entry& entry) {
  return {{"entry", entry.id},
          {"by", entry.author},
          {"settings", entry.text},
          {"state", kStates[static_cast<std::size_t>(entry.state)]},
          {"before_frame", nullable(entry.beforeFrame)},
          {"read_back_frame", nullable(entry.readBackFrame)},
          {"gap_us", nullable(entry.gapUs)},
          {"refusal", entry.refusal}};
}

json camera_object(const live_camera& camera) {
  json object = {{"camera", camera.serial},
                 {"state", kPhases[static_cast<std::size_t>(camera.phase)]},
                 {"words", phase_words(camera)},
                 {"reason", camera.reason},
                 {"advice", camera.advice},
                 {"frames", camera.totals.frames},
                 {"handed_over", camera.handedOver},
                 {"rate_hz", camera.rateHz},
                 {"configured_rate_hz", camera.frameRateHz},
                 {"missed", camera.totals.missed},
                 {"failures", camera.totals.failures},
                 {"longest_gap_us", camera.longestGapUs},
                 {"exposure_us", nullable(camera.totals.exposureUs)},
                 {"gain_db", nullable(camera.totals.gainDb)},
                 {"temperature_c", nullable(camera.totals.temperatureC)},
                 {"recorded", camera.isRecording ? json(camera.recorded) : json(nullptr)},
                 {"dropped", camera.isRecording ? json(camera.dropped) : json(nullptr)},
                 {"sweeps_held", camera.isHeld},
                 {"can_undo", camera.canUndo},
                 {"controls", json::array()},
                 {"entries", json::array()}};
  for (const setting_control& control : camera.controls) {
    object["controls"].push_back(control_object(control));
  }
  for (const setting_entry& entry : camera.entries) {
    object["entries"].push_back(entry_object(entry));
  }
  return object;
}

// Texts of cameras and files may be no UTF-8.
std::string text_of(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

std::string phase_words(const live_camera& camera) {
  const std::string reason = camera.reason.empty() ? "" : ": " + camera.reason;
  switch (camera.phase) {
    case camera_phase::starting:
      return "starting";
    case camera_phase::running:
      return "running";
    case camera_phase::silent:
      return fmt::format("silent for {:.0f} s", camera.phaseS);
    case camera_phase::down:
      return fmt::format("down{}; created again in {:.0f} s", reason, camera.againInS);
    case camera_phase::given_up:
      break;
  }
  return "given up" + reason;
}

std::string camera_json(const live_camera& camera) {
  return text_of(camera_object(camera));
}

std::string cameras_json(const std::vector<live_camera>& cameras) {
  json all = json::array();
  for (const live_camera& camera : cameras) {
    all.push_back(camera_object(camera));
  }
  return text_of(all);
}

std::string log_json(const std::vector<tail_line>& lines) {
  json all = json::array();
  for (const tail_line& line : lines) {
    all.push_back({{"number", line.number},
                   {"time_us", line.timeUs},
                   {"level", line.level},
                   {"camera", line.camera},
                   {"text", line.text}});
  }
  return text_of(all);
}

}  // namespace host
