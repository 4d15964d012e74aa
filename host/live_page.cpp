#include "host/live_page.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "host/acquire/advice.h"
#include "host/config/keys.h"
#include "host/web/live/access.h"

namespace host {
namespace {

constexpr std::uint64_t kSilentUs = 1'000'000;  // a camera is silent when frames are overdue for so long,
constexpr std::uint64_t kSilentPeriods = 3;     // and for so many of its frames
constexpr std::size_t kEntriesShown = 20;
constexpr std::size_t kPemMax = 64 << 10;  // bytes of a certificate or key

// Two connections for every viewer, and some for requests beside them.
constexpr web_limits kLimits = {.connections = 2 * live_viewers::kViewersMax + 32,
                                .connectionsOfClient = 48,
                                .bodyBytes = access_rules::kBodyMax};

std::string token_for(const live_options& chosen) {
  return chosen.tokenFile.empty() ? random_token() : token_of_file(chosen.tokenFile);
}

access_rules rules_for(const live_options& chosen, const std::string& token) {
  return access_rules({.token = token,
                       .hosts = host_names(chosen.where.address, chosen.hosts),
                       .isLoopback = is_loopback(chosen.where.address),
                       .isTls = !chosen.certificate.empty(),
                       .isReadOnly = chosen.isReadOnly});
}

std::string pem_of(const char* option, const std::string& path) {
  if (path.empty()) {
    return "";
  }
  std::ifstream file(path);
  std::string text(kPemMax, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.find("-----BEGIN ") == std::string::npos || text.size() == kPemMax) {
    throw std::runtime_error(
        fmt::format("{}: {} must be a readable PEM file of less than {} bytes", option, path, kPemMax));
  }
  return text;
}

std::uint64_t since(std::uint64_t nowUs, std::uint64_t thenUs) {
  return nowUs > thenUs ? nowUs - thenUs : 0;
}

// The phase, and since when: `steady_us`.
std::pair<camera_phase, std::uint64_t> phase_of(const camera_snapshot& now) {
  const camera_status& status = now.status;
  if (!status.givenUp.empty()) {
    return {camera_phase::given_up, status.phaseUs};
  }
  if (!status.failure.empty()) {
    return {camera_phase::down, status.phaseUs};
  }
  if (!status.isRunning) {
    return {camera_phase::starting, now.nowUs};
  }
  const std::uint64_t lastUs = std::max(status.lastFrameUs, status.phaseUs);
  const auto periodUs = static_cast<std::uint64_t>(status.periodUs);
  const bool isSilent = since(now.nowUs, lastUs) > std::max(kSilentUs, kSilentPeriods * periodUs);
  return isSilent ? std::pair(camera_phase::silent, lastUs)
                  : std::pair(camera_phase::running, status.phaseUs);
}

setting_entry entry_of(const setting_request& request) {
  setting_entry entry;
  entry.id = request.id;
  entry.text = settings_text(request.settings);
  entry.author = request.requester.substr(0, request.requester.find(": " + entry.text));  // as sweeps have it
  entry.refusal = request.refusal;
  if (request.appliedBefore > 0) {
    entry.state = entry_state::applied;
    entry.beforeFrame = request.appliedBefore;
    entry.gapUs = request.longestGapUs > 0 ? std::optional(request.longestGapUs) : std::nullopt;
  }
  if (request.readBackWith > 0) {
    entry.state = entry_state::read_back;
    entry.readBackFrame = request.readBackWith;
  }
  if (!request.refusal.empty()) {
    entry.state = entry_state::refused;
  }
  return entry;
}

template <class T>
std::optional<double> widened(const std::optional<T>& value) {
  return value ? std::optional(static_cast<double>(*value)) : std::nullopt;
}

// The control of a key, with the camera's limits or else those of the configuration.
template <class T>
setting_control control_of(const char* name, const std::optional<setting_range>& range,
                           const light_settings& now, const manual_settings& manual,
                           std::optional<T> light_settings::*value) {
  const key_table& keys = sweep_keys();
  const auto key = std::find_if(keys.begin(), keys.end(),
                                [&](const config_key& each) { return name == std::string(each.name); });
  return {.key = name,
          .unit = key->unit,
          .limits = range ? setting_limits{range->min, range->max, true}
                          : setting_limits{key->min, key->max, false},
          .isWhole = key->type == key_type::integer,
          .inForce = widened(now.*value),
          .configured = widened(manual.configured().*value),
          .restored = widened(manual.restored().*value)};
}

std::vector<setting_control> controls_of(const camera_slot& slot) {
  const light_limits limits = slot.settings.limits();
  const light_settings now = slot.settings.in_force();
  const manual_settings& manual = slot.manual;
  return {control_of("exposure_us", limits.exposureUs, now, manual, &light_settings::exposureUs),
          control_of("gain_db", limits.gainDb, now, manual, &light_settings::gainDb),
          control_of("gamma", limits.gamma, now, manual, &light_settings::gamma),
          control_of("ir_level", std::nullopt, now, manual, &light_settings::irLevel)};
}

live_camera camera_of(const live_source& source) {
  const camera_snapshot now = snapshot_of(source.slot, source.files, source.video);
  const auto [phase, phaseUs] = phase_of(now);
  live_camera camera;
  camera.serial = now.serial;
  camera.phase = phase;
  camera.reason = now.status.failure;
  camera.advice = phase == camera_phase::silent ? no_frames_advice({}) : now.status.advice;
  camera.phaseS = seconds(since(now.nowUs, phaseUs));
  camera.againInS = seconds(since(now.status.againUs, now.nowUs));
  camera.frameRateHz = now.status.periodUs > 0 ? 1e6 / now.status.periodUs : 0;
  camera.totals = now.status;
  camera.handedOver = source.slot.handedOver.load();
  camera.longestGapUs = now.intervals.max_us();
  camera.isRecording = now.files.has_value();
  camera.recorded = now.files.value_or(output_totals{}).written;
  camera.dropped = now.files.value_or(output_totals{}).dropped;
  camera.isHeld = source.slot.manual.are_sweeps_held();
  camera.canUndo = source.slot.manual.can_undo();
  camera.controls = controls_of(source.slot);
  const std::vector<setting_request> account = source.slot.settings.account();
  const std::size_t first = account.size() > kEntriesShown ? account.size() - kEntriesShown : 0;
  std::transform(account.begin() + static_cast<std::ptrdiff_t>(first), account.end(),
                 std::back_inserter(camera.entries), entry_of);
  camera.rateHz = source.preview->rate_hz();
  return camera;
}

// Where others find this machine: the address it listens on, or its name where that is all of them.
std::string link_host(const std::string& address) {
  if (address != "0.0.0.0" && address != "::") {
    return address.find(':') == std::string::npos ? address : "[" + address + "]";
  }
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "localhost";
}

}  // namespace

live_page::live_page(const live_options& chosen, live_session session)
    : chosen_(chosen),
      session_(std::move(session)),
      token_(token_for(chosen_)),
      viewers_(*this),
      api_(*this, viewers_, rules_for(chosen_, token_)),
      server_(chosen_.where, [this](const web_request& request) { return api_.answer(request); }, kLimits,
              {.certificate = pem_of("--web-cert", chosen_.certificate),
               .key = pem_of("--web-key", chosen_.key)}) {}

std::string live_page::link() const {
  const std::string secret = chosen_.tokenFile.empty() ? "#token=" + token_ : "";
  return fmt::format("{}://{}:{}/{}", chosen_.certificate.empty() ? "http" : "https",
                     link_host(chosen_.where.address), server_.port(), secret);
}

std::vector<live_camera> live_page::cameras() {
  std::vector<live_camera> all;
  session_.visitCameras([&](const live_source& source) { all.push_back(camera_of(source)); });
  return all;
}

std::shared_ptr<preview_source> live_page::preview(const std::string& serial) {
  std::shared_ptr<preview_source> found;
  session_.visitCameras([&](const live_source& source) {
    if (source.slot.serial == serial) {
      found = source.preview;
    }
  });
  return found;
}

queue_answer live_page::with_slot(const std::string& serial,
                                  const std::function<queue_answer(camera_slot&)>& ask) {
  queue_answer answer{0, {"the camera is no longer configured"}};
  session_.visitCameras([&](const live_source& source) {
    if (source.slot.serial == serial) {
      answer = ask(source.slot);
    }
  });
  return answer;
}

queue_answer live_page::apply(const std::string& serial, const light_settings& settings,
                              const std::string& author) {
  return with_slot(serial, [&](camera_slot& slot) { return slot.manual.apply(author, settings); });
}

queue_answer live_page::command(const std::string& serial, settings_command what, const std::string& author) {
  return with_slot(serial, [&](camera_slot& slot) -> queue_answer {
    switch (what) {
      case settings_command::undo:
        return slot.manual.undo(author);
      case settings_command::configuration:
        return slot.manual.restore(author);
      case settings_command::resume:
        break;
    }
    slot.manual.resume();
    return {};
  });
}

}  // namespace host
