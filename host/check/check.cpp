#include "host/check/check.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/acquire/advice.h"
#include "host/acquire/loss.h"
#include "host/acquire/open_camera.h"
#include "host/acquire/settings_queue.h"
#include "host/acquire/sweeps.h"
#include "host/check/cameras.h"
#include "host/check/diagnosis.h"
#include "host/check/prediction.h"
#include "host/check/probe.h"
#include "host/check/table.h"
#include "host/config/text.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr double kMeasureSeconds = 3;
constexpr double kIntervalTolerance = 0.02;
constexpr auto kEndLongest = 2000ms;  // the bundle waits for a frame at most a second
constexpr double kStepLongestS = 30;  // a change of settings that takes longer to judge is not tested
constexpr double kSlowHz = 4;         // cameras below it are judged by fewer frames

// What is known of the frames of the first seconds.
struct measurement {
  std::vector<seen_frame> frames;
  missed_frames missed;
  std::uint64_t longestUs = 0;
  double hostMeanUs = 0;    // by arrivals
  double cameraMeanUs = 0;  // by the camera's clock; 0: not known
};

// Over pairs of frames that are half of them apart, so that one that was late weighs little, even the first.
double mean_interval_us(const std::vector<seen_frame>& frames) {
  const std::size_t half = frames.size() / 2;
  double sumUs = 0;
  for (std::size_t at = half; at < frames.size(); ++at) {
    sumUs += static_cast<double>(frames[at].arrivalUs - frames[at - half].arrivalUs);
  }
  return sumUs / static_cast<double>((frames.size() - half) * half);
}

double camera_interval_us(const seen_frame& first, const seen_frame& last) {
  const bool isKnown = first.id != 0 && last.id > first.id && last.cameraTimeNs > first.cameraTimeNs;
  return isKnown ? static_cast<double>(last.cameraTimeNs - first.cameraTimeNs) / 1000 /
                       static_cast<double>(last.id - first.id)
                 : 0;
}

measurement measured(std::vector<seen_frame> frames, double periodUs) {
  measurement result;
  result.missed.run_started(periodUs);
  for (const seen_frame& each : frames) {
    result.longestUs = std::max(result.longestUs, result.missed.arrived(each.arrivalUs, each.id).value_or(0));
  }
  result.hostMeanUs = mean_interval_us(frames);
  result.cameraMeanUs = camera_interval_us(frames.front(), frames.back());
  result.frames = std::move(frames);
  return result;
}

// The frames around one change of settings.
struct step_frames {
  std::vector<seen_frame> frames;  // all of the run so far
  std::size_t applied;             // index of the first frame after the change
  std::size_t meanOf;              // so many frames on either side are judged

  const seen_frame& last_before() const { return frames[applied - 1]; }
  grey_series series() const {
    const auto means = [this](std::size_t first) {
      std::vector<double> greys;
      for (std::size_t at = first; at < first + meanOf; ++at) {
        greys.push_back(frames[at].mean);
      }
      return greys;
    };
    return {means(applied - meanOf), means(frames.size() - meanOf)};
  }
  // Number of the first frame after the change that shows the settings, from 1; 0: none.
  std::size_t first_that_shows(const light_settings& settings) const {
    const auto begin = frames.begin() + static_cast<std::ptrdiff_t>(applied);
    const auto found =
        std::find_if(begin, frames.end(), [&](const seen_frame& each) { return shows(each.info, settings); });
    return found == frames.end() ? 0 : static_cast<std::size_t>(found - begin) + 1;
  }
};

// The status that a failure of the bundle carries: "fail: GevStartTransfer (answer:0xfffffffa)".
std::optional<GEV_STATUS> logged_status(const std::string& failure) {
  constexpr std::string_view kBefore = "(answer:0x";
  const auto at = failure.find(kBefore);
  std::uint32_t bits = 0;
  const bool isThere =
      at != std::string::npos &&
      std::from_chars(failure.data() + at + kBefore.size(), failure.data() + failure.size(), bits, 16).ec ==
          std::errc();
  return isThere ? std::optional(static_cast<GEV_STATUS>(bits)) : std::nullopt;
}

// One camera's test, from finding it to the end of its run.
class camera_check {
 public:
  camera_check(const library_choice& chosen, const camera_config& camera, std::vector<sweep_config> sweeps)
      : libraries_(chosen), camera_(camera), sweeps_(std::move(sweeps)) {}

  check_table run(const camera_library& library, const bundle_session& bundle);

 private:
  bool find(const camera_library& library);
  void explain_refusal(const camera_library& library, const std::string& failures);
  void test_device(probe& camera);
  bool measure(probe& camera);
  std::vector<std::string> why_no_frames(const probe& camera) const;
  void judge_intervals(const measurement& seen, const std::optional<camera_extension_health_record>& health);
  void judge_timestamps(const std::vector<seen_frame>& frames);
  void judge_settings(const seen_frame& frame);
  void test_sweeps(probe& camera);
  void test_step(probe& camera, const std::string& name, const light_settings& settings);
  void judge_step(const std::string& name, const light_settings& settings, const step_frames& step,
                  const grey_bounds& predicted);
  void test_ir(probe& camera);
  void test_temperature(const probe& camera);
  void test_end(probe& camera);
  std::optional<step_frames> change(probe& camera, const light_settings& settings);

  double period_us() const { return camera_.period_us(); }
  double rate_hz() const { return 1e6 / period_us(); }
  bool is_slow() const { return rate_hz() < kSlowHz; }
  std::size_t frames_of_step() const { return is_slow() ? 4 : 12; }  // looked at after a change of settings
  std::size_t frames_of_mean() const { return is_slow() ? 2 : 5; }
  bool is_too_slow_for_steps() const {
    return static_cast<double>(frames_of_step()) / rate_hz() > kStepLongestS;
  }
  milliseconds time_for(std::size_t frames) const {
    return 3000ms + milliseconds(std::llround(static_cast<double>(frames) * period_us() / 1000));
  }

  const library_choice& libraries_;
  const camera_config& camera_;
  std::vector<sweep_config> sweeps_;
  light_settings inForce_;
  check_table table_;
  progress_line progress_;
};

check_table camera_check::run(const camera_library& library, const bundle_session& bundle) {
  table_.add("library starts", true, "");
  if (find(library)) {
    probe camera(library, bundle, camera_);
    if (camera.is_created()) {
      table_.add("device created", true, camera.preparation());
      camera.start();
      test_device(camera);
    } else {
      explain_refusal(library, camera.failures());
    }
  }
  table_.skip_rest("a check before it failed");
  return table_;
}

bool camera_check::find(const camera_library& library) {
  const camera_search search = search_cameras(library, libraries_.is_simulated());
  const auto reasons = why_missing(camera_.serial, search);
  const found_camera* own = find_camera(search.found, camera_.serial);
  return table_.add("camera found", own != nullptr && reasons.empty(),
                    own != nullptr
                        ? fmt::format("{} {} at {}", own->model, own->version, address_text(own->address))
                        : reasons.front(),
                    reasons);
}

// What the camera does not take; where nothing is found, what the bundle logged.
void camera_check::explain_refusal(const camera_library& library, const std::string& failures) {
  const refusal_reasons found = diagnose(library, camera_, libraries_.is_simulated());
  if (found.lines.empty()) {
    table_.add("device created", false, failures, {kUnexplainedAdvice});
  } else {
    table_.add("device created", false,
               found.isLasting ? "the camera does not take the configuration" : "the camera can't be used",
               found.lines);
  }
}

void camera_check::test_device(probe& camera) {
  if (measure(camera)) {
    test_sweeps(camera);
    test_ir(camera);
    test_temperature(camera);
  }
  test_end(camera);
}

bool camera_check::measure(probe& camera) {
  const auto wanted =
      std::clamp<std::size_t>(static_cast<std::size_t>(std::lround(kMeasureSeconds * rate_hz())),
                              is_slow() ? 3 : frames_of_step(), 300);
  const bool isEnough = camera.wait_frames(wanted, time_for(wanted), progress_);
  progress_.clear();
  const std::vector<seen_frame> frames = camera.frames();
  const std::string figure =
      fmt::format("{} of {}{}", frames.size(), wanted, camera.is_running() ? "" : ", and the run failed");
  if (!table_.add("frames arrive", isEnough, figure,
                  isEnough ? std::vector<std::string>() : why_no_frames(camera))) {
    return false;
  }
  judge_intervals(measured(frames, period_us()), camera.health());
  judge_timestamps(frames);
  judge_settings(frames.back());
  return true;
}

std::vector<std::string> camera_check::why_no_frames(const probe& camera) const {
  if (const std::string failures = camera.run_failures(); !failures.empty()) {
    std::vector<std::string> lines = {failures};
    if (const auto status = logged_status(failures)) {
      lines.push_back("the camera refused: " + status_text(*status));
    }
    lines.emplace_back(kUnexplainedAdvice);
    return lines;
  }
  return {no_frames_advice(camera.health())};
}

void camera_check::judge_intervals(const measurement& seen,
                                   const std::optional<camera_extension_health_record>& health) {
  constexpr const char* kName = "frame interval";
  const double configuredUs = 1e6 / camera_.frameRateHz;
  const bool isByCamera = seen.cameraMeanUs > 0;
  const double meanUs = isByCamera ? seen.cameraMeanUs : seen.hostMeanUs;
  const std::uint64_t missed = seen.missed.count(seen.frames.back().arrivalUs);
  const bool isRateRight = std::abs(meanUs / configuredUs - 1) <= kIntervalTolerance;
  const std::string figure = fmt::format(
      "{:.2f} ms by {} clock, configured {:.2f} ms; longest between arrivals {:.2f} ms, {} missed",
      meanUs / 1000, isByCamera ? "the camera's" : "this machine's", configuredUs / 1000,
      static_cast<double>(seen.longestUs) / 1000, missed);
  const bool isOnlyLate =
      health && health->frames_dropped > 0 && frames_lost(*health) == health->frames_dropped;
  if (isRateRight && missed > 0 && isOnlyLate) {
    table_.skip(kName, fmt::format("{}: this machine was too busy to take {} of the frames", figure, missed));
    return;
  }
  std::vector<std::string> advice;
  if (period_us() > configuredUs) {
    advice.push_back(fmt::format("exposure_us = {} caps the rate at {:.4g} Hz",
                                 camera_.initial.exposureUs.value_or(0), rate_hz()));
  } else if (!isRateRight) {
    advice.emplace_back(
        "the camera does not keep the rate: its window or its link may be too large or too slow for it");
  }
  if (missed > 0) {
    const std::string causes = health ? loss_text(*health) : "";
    advice.push_back(causes.empty()
                         ? "frames were late or lost: look at the network and at the load of this machine"
                         : causes);
  }
  table_.add(kName, isRateRight && missed == 0, figure, advice);
}

void camera_check::judge_timestamps(const std::vector<seen_frame>& frames) {
  const auto back = std::adjacent_find(frames.begin(), frames.end(), [](const auto& a, const auto& b) {
    return b.info.timestampUs <= a.info.timestampUs;
  });
  table_.add("timestamps increase", back == frames.end(),
             back == frames.end()
                 ? fmt::format("{} frames", frames.size())
                 : fmt::format("frame {} is not after the one before", back - frames.begin() + 2),
             {"the computer's clock was set back, or frames come in bursts: look at the frame interval"});
}

void camera_check::judge_settings(const seen_frame& frame) {
  const light_settings& asked = camera_.initial;
  table_.add("exposure read back", shows(frame.info, {.exposureUs = asked.exposureUs}),
             fmt::format("{} us, configured {} us", frame.info.exposureUs, asked.exposureUs.value_or(0)),
             {"the camera rounds or limits the exposure: configure what it reads back"});
  if (!asked.gainDb) {
    table_.skip("gain read back", "gain_db is not configured");
    return;
  }
  table_.add("gain read back", shows(frame.info, {.gainDb = asked.gainDb}),
             fmt::format("{:.2f} dB, configured {} dB", frame.info.gainDb, *asked.gainDb),
             {"the camera rounds or limits the gain: configure what it reads back"});
}

// Applies a change and waits for the frames after it; none when they did not come.
std::optional<step_frames> camera_check::change(probe& camera, const light_settings& settings) {
  inForce_ = merged(inForce_, settings);
  light_settings full = settings;
  full.exposureUs = inForce_.exposureUs;
  full.irLevel = inForce_.irLevel;
  const auto applied = camera.apply(full, time_for(2));
  const bool isDone = applied && *applied >= frames_of_mean() &&
                      camera.wait_frames(*applied + frames_of_step(), time_for(frames_of_step()), progress_);
  progress_.clear();
  return isDone ? std::optional(step_frames{camera.frames(), *applied, frames_of_mean()}) : std::nullopt;
}

// The sweeps of the configuration; without any, the exposure is halved, as far as the camera takes that.
void camera_check::test_sweeps(probe& camera) {
  if (is_too_slow_for_steps()) {
    table_.skip(kSweeps, fmt::format("at {:.3g} Hz it would take too long", rate_hz()));
    return;
  }
  inForce_ = camera_.initial;
  inForce_.gamma = 1.0F;  // a run starts without gamma
  if (sweeps_.empty()) {
    const auto range = camera.limits().exposureUs;
    const float half = *camera_.initial.exposureUs / 2;
    test_step(camera, kSweeps, {.exposureUs = range ? std::max(half, static_cast<float>(range->min)) : half});
  }
  for (std::size_t at = 0; at < sweeps_.size(); ++at) {
    test_step(camera,
              sweeps_.size() == 1 ? std::string(kSweeps) : fmt::format("sweep {} takes effect", at + 1),
              sweeps_[at].settings);
  }
  light_settings back = camera_.initial;
  back.gamma = 1.0F;
  change(camera, back);
}

void camera_check::test_step(probe& camera, const std::string& name, const light_settings& settings) {
  const std::string text = settings_text(settings);
  if (const auto refused = refused_settings(settings, camera.limits()); !refused.empty()) {
    table_.add(name, false, text + ": refused", refused);
    return;
  }
  light_settings before = inForce_;
  const auto step = change(camera, settings);
  if (!step) {
    const std::string failures = camera.run_failures();
    table_.add(
        name, false, text + ": no frames after it",
        {failures.empty() ? "'mediagrabber run -v' logs what the driver did with the settings" : failures});
    return;
  }
  before.gainDb = step->last_before().info.gainDb;  // where none is configured
  const light_settings after = merged(before, settings);
  judge_step(name, settings, *step, predict(step->last_before().greys, before, after, camera_.pins > 0));
}

void camera_check::judge_step(const std::string& name, const light_settings& settings,
                              const step_frames& step, const grey_bounds& predicted) {
  const std::string text = settings_text(settings);
  const std::size_t read = step.first_that_shows(settings);
  if (read == 0) {
    table_.add(name, false, text + ": never read back", {"the camera rounds or limits the setting"});
    return;
  }
  const std::string readText = is_in_frames(settings) ? fmt::format("read back with frame {}, ", read) : "";
  const effect_judgement seen = judge_effect(step.series(), predicted);
  const std::string figure = fmt::format("{}: {}{}", text, readText, seen.text);
  if (seen.verdict == effect_verdict::notJudged) {
    table_.skip(name, figure);
  } else {
    table_.add(
        name, seen.verdict == effect_verdict::seen, figure,
        {"the picture does not follow the settings: is something else in control of exposure or gain?"});
  }
}

void camera_check::test_ir(probe& camera) {
  constexpr const char* kName = "IR off and on";
  if (camera_.pins == 0 || is_too_slow_for_steps()) {
    table_.skip(
        kName, camera_.pins == 0 ? "no [[camera.pin]] is configured" : "at this rate it would take too long");
    return;
  }
  const auto off = change(camera, {.irLevel = 0});
  const auto on = change(camera, {.irLevel = std::max<std::int64_t>(camera_.initial.irLevel.value_or(0), 1)});
  if (!off || !on) {
    table_.add(kName, false, "no frames after it", {"the camera or the driver did not take the IR level"});
    return;
  }
  const grey_series seen = on->series();
  // The brightness of the light is not known: any change beyond the noise will do.
  const double noise = *std::max_element(seen.before.begin(), seen.before.end());
  const double darkest = *std::min_element(seen.after.begin(), seen.after.end());
  table_.add(kName, darkest > noise,
             fmt::format("grey {:.1f} off, {:.1f} on", seen.before.back(), seen.after.back()),
             {"look at the light's power, the line that it hangs on, and its polarity"});
}

void camera_check::test_temperature(const probe& camera) {
  const auto celsius = camera.temperature();
  table_.add("temperature", celsius.has_value(), celsius ? fmt::format("{:.1f} C", *celsius) : "none",
             {"the camera has no DeviceTemperature of the selector entry 'Internal'"});
}

void camera_check::test_end(probe& camera) {
  if (!camera.is_running()) {
    table_.skip("ends on a signal", "the run ended before");
    return;
  }
  const auto took = camera.end();
  table_.add("ends on a signal", took <= kEndLongest,
             fmt::format("after {:.0f} ms", static_cast<double>(took.count()) / 1000),
             {"the camera answers too slowly while its transfer is stopped"});
}

// Why the library does not start, as far as that is known here.
std::string start_advice(const library_choice& chosen) {
  return chosen.is_simulated()
             ? "SIM_CAMERAS describes the simulated cameras: standard error names what is wrong "
               "in it"
             : "choose the libraries with --framework and --bundle";
}

}  // namespace

int check_cameras(const library_choice& chosen, const config& configuration) try {
  const camera_library library(find_framework(chosen.framework));
  const auto path = find_bundle(chosen.bundle);
  std::size_t total[3] = {};
  std::unique_ptr<bundle_session> bundle;
  std::string startFailure;
  try {
    bundle = std::make_unique<bundle_session>(path);
    camera_extension(library).prefer(configuration.serials());
  } catch (const library_error& error) {
    startFailure = error.what();
  }
  for (const camera_config& camera : configuration.cameras) {
    fmt::print("{}\n", printable(camera.serial));
    check_table table;
    if (bundle) {
      table = camera_check(chosen, camera, configuration.sweeps_of(camera.serial)).run(library, *bundle);
    } else {
      table.add("library starts", false, startFailure, {start_advice(chosen)});
      table.skip_rest("the library did not start");
    }
    for (const auto which : {verdict::passed, verdict::failed, verdict::skipped}) {
      total[static_cast<std::size_t>(which)] += table.count(which);
    }
  }
  fmt::print("{} passed, {} failed, {} skipped\n", total[0], total[1], total[2]);
  return total[1] == 0 ? 0 : 1;
} catch (const interrupted&) {
  fmt::print("interrupted\n");
  return 1;
}

}  // namespace host
