#include "host/check/check.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "host/acquire/intervals.h"
#include "host/acquire/library.h"
#include "host/acquire/monitor.h"
#include "host/acquire/settings_queue.h"
#include "host/acquire/sweeps.h"
#include "host/check/cameras.h"
#include "host/check/diagnosis.h"
#include "host/check/probe.h"
#include "host/config/text.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr double kMeasureSeconds = 3;
constexpr std::size_t kFramesOfStep = 12;  // looked at after a change of settings
constexpr std::size_t kFramesOfMean = 5;
constexpr double kIntervalTolerance = 0.02;
constexpr double kGreyNoise = 1.5;  // a picture that differs by less has not changed
constexpr auto kEndLongest = 1000ms;
constexpr const char* kNextAdvice =
    "\n                                 -> ";  // below the first line of advice

// Over pairs of frames that are half of them apart, so that one that was late weighs little, even the first.
double mean_interval_us(const std::vector<seen_frame>& frames) {
  const std::size_t half = frames.size() / 2;
  double sumUs = 0;
  for (std::size_t at = half; at < frames.size(); ++at) {
    sumUs += static_cast<double>(frames[at].arrivalUs - frames[at - half].arrivalUs);
  }
  return sumUs / static_cast<double>((frames.size() - half) * half);
}

enum class verdict : std::uint8_t { passed, failed, skipped };

struct check_result {
  std::string name;
  verdict outcome;
  std::string figure;
  std::string advice;  // of a failure
};

// The names in the order of the table; sweeps come in where they stand. A check that is not reached is
// skipped.
constexpr const char* kSweeps = "sweeps take effect";
constexpr std::array kNames = {"library starts",     "camera found",   "device created",
                               "frames arrive",      "frame interval", "timestamps increase",
                               "exposure read back", "gain read back", kSweeps,
                               "IR off and on",      "temperature",    "ends on a signal"};

class check_table {
 public:
  bool add(const char* name, bool isPassed, const std::string& figure, const std::string& advice) {
    results_.push_back({name, isPassed ? verdict::passed : verdict::failed, figure, isPassed ? "" : advice});
    return isPassed;
  }
  void skip(const char* name, const std::string& why) {
    results_.push_back({name, verdict::skipped, why, ""});
  }
  void skip_rest(const std::string& why);
  void print() const;
  std::size_t count(verdict which) const {
    return static_cast<std::size_t>(std::count_if(
        results_.begin(), results_.end(), [=](const check_result& each) { return each.outcome == which; }));
  }

 private:
  std::vector<check_result> results_;
};

void check_table::skip_rest(const std::string& why) {
  const auto begins = [](const char* name) {
    return [=](const check_result& each) { return each.name.starts_with(name); };
  };
  for (const char* name : kNames) {
    const char* beginning = name == std::string(kSweeps) ? "sweep" : name;  // each sweep has a row of its own
    if (std::none_of(results_.begin(), results_.end(), begins(beginning))) {
      skip(name, why);
    }
  }
}

void check_table::print() const {
  constexpr const char* words[] = {"passed", "FAILED", "skipped"};
  for (const check_result& each : results_) {
    fmt::print("  {:<8} {:<21} {}\n", words[static_cast<std::size_t>(each.outcome)], each.name, each.figure);
    if (!each.advice.empty()) {
      fmt::print("  {:<8} {:<21} -> {}\n", "", "", each.advice);
    }
  }
}

double mean_grey(const std::vector<seen_frame>& frames, std::size_t first, std::size_t count) {
  const auto begin = frames.begin() + static_cast<std::ptrdiff_t>(first);
  return std::accumulate(begin, begin + static_cast<std::ptrdiff_t>(count), 0.0,
                         [](double sum, const seen_frame& each) { return sum + each.mean; }) /
         static_cast<double>(count);
}

// The frames around one change of settings.
struct step_frames {
  std::vector<seen_frame> frames;  // all of the run so far
  std::size_t applied;             // index of the first frame after the change

  double before() const { return mean_grey(frames, applied - kFramesOfMean, kFramesOfMean); }
  double after() const { return mean_grey(frames, frames.size() - kFramesOfMean, kFramesOfMean); }
  bool is_picture_changed() const { return std::abs(after() - before()) > kGreyNoise; }

  // Number of the first frame after the change that meets a condition, from 1; 0: none.
  template <class Condition>
  std::size_t first(Condition isMet) const {
    const auto begin = frames.begin() + static_cast<std::ptrdiff_t>(applied);
    const auto found = std::find_if(begin, frames.end(), isMet);
    return found == frames.end() ? 0 : static_cast<std::size_t>(found - begin) + 1;
  }
};

// Whether a change of these settings is to be seen in any picture that is neither black nor white.
bool is_visible(const light_settings& from, const light_settings& to) {
  const auto differs = [](const auto& a, const auto& b, double least) {
    return b && std::abs(static_cast<double>(*b) - static_cast<double>(a.value_or(*b))) >= least;
  };
  return differs(from.exposureUs, to.exposureUs, static_cast<double>(from.exposureUs.value_or(0)) * 0.2) ||
         differs(from.gainDb, to.gainDb, 1.0) || differs(from.gamma, to.gamma, 0.2);
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
  interval_tracker intervals_of(const std::vector<seen_frame>& frames) const;
  void judge_intervals(const std::vector<seen_frame>& frames);
  void judge_timestamps(const std::vector<seen_frame>& frames);
  void judge_settings(const seen_frame& frame);
  void test_sweeps(probe& camera);
  void test_step(probe& camera, const std::string& name, const light_settings& settings);
  void test_ir(probe& camera);
  void test_temperature(const probe& camera);
  void test_end(probe& camera);
  std::optional<step_frames> change(probe& camera, const light_settings& settings);
  milliseconds time_for(std::size_t frames) const {
    return 3000ms + milliseconds(std::llround(1000.0 * static_cast<double>(frames) / camera_.frameRateHz));
  }

  const library_choice& libraries_;
  const camera_config& camera_;
  std::vector<sweep_config> sweeps_;
  light_settings inForce_;
  check_table table_;
};

check_table camera_check::run(const camera_library& library, const bundle_session& bundle) {
  table_.add("library starts", true, "", "");
  if (find(library)) {
    probe camera(library, bundle, camera_);
    if (camera.is_created()) {
      table_.add("device created", true, camera.preparation(), "");
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
  const auto& found = search.found;
  const auto reasons = why_missing(camera_.serial, search);
  const auto own = std::find_if(found.begin(), found.end(),
                                [&](const auto& each) { return camera_.serial == each.serial; });
  const bool isThere = own != found.end();
  const std::string figure =
      isThere ? fmt::format("{} {} at {}", own->model, own->version, address_text(own->address))
              : reasons.front();
  return table_.add("camera found", isThere && reasons.empty(), figure,
                    fmt::format("{}", fmt::join(reasons, kNextAdvice)));
}

// What the camera does not take; where nothing is found, what the bundle logged.
void camera_check::explain_refusal(const camera_library& library, const std::string& failures) {
  const refusal_reasons found = diagnose(library, camera_, libraries_.is_simulated());
  if (found.lines.empty()) {
    table_.add("device created", false, failures, "'mediagrabber run -v' logs what led to it");
    return;
  }
  table_.add("device created", false, "the camera does not take the configuration",
             fmt::format("{}", fmt::join(found.lines, kNextAdvice)));
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
  const auto wanted = std::clamp<std::size_t>(static_cast<std::size_t>(kMeasureSeconds * camera_.frameRateHz),
                                              kFramesOfStep, 300);
  const bool isEnough = camera.wait_frames(wanted, time_for(wanted));
  std::vector<seen_frame> frames = camera.frames();
  const std::string figure =
      fmt::format("{} of {}{}", frames.size(), wanted, camera.is_running() ? "" : ", and the run failed");
  if (!table_.add("frames arrive", isEnough, figure,
                  "look for a firewall that holds the stream back, a packet size above the network's, a "
                  "camera that waits for a trigger")) {
    return false;
  }
  if (intervals_of(frames).is_in_doubt()) {
    camera.wait_frames(wanted + interval_tracker::kRush, time_for(interval_tracker::kRush));
    frames = camera.frames();
  }
  judge_intervals(frames);
  judge_timestamps(frames);
  judge_settings(frames.back());
  return true;
}

interval_tracker camera_check::intervals_of(const std::vector<seen_frame>& frames) const {
  interval_tracker tracker(1e6 / camera_.frameRateHz);
  for (const seen_frame& each : frames) {
    tracker.arrived(each.arrivalUs);
  }
  return tracker;
}

void camera_check::judge_intervals(const std::vector<seen_frame>& frames) {
  interval_tracker tracker = intervals_of(frames);
  tracker.interrupt();
  const double periodUs = 1e6 / camera_.frameRateHz;
  const double meanUs = mean_interval_us(frames);
  const bool isRight = std::abs(meanUs / periodUs - 1) <= kIntervalTolerance && tracker.missed() == 0;
  table_.add(
      "frame interval", isRight,
      fmt::format("{:.2f} ms on average, configured {:.2f} ms; longest {:.2f} ms, {} missed", meanUs / 1000,
                  periodUs / 1000, static_cast<double>(tracker.histogram().max_us()) / 1000,
                  tracker.missed()),
      "the exposure may be longer than the frame period, or the network too slow for the window and rate");
}

void camera_check::judge_timestamps(const std::vector<seen_frame>& frames) {
  const auto back = std::adjacent_find(frames.begin(), frames.end(), [](const auto& a, const auto& b) {
    return b.info.timestampUs <= a.info.timestampUs;
  });
  table_.add("timestamps increase", back == frames.end(),
             back == frames.end()
                 ? fmt::format("{} frames", frames.size())
                 : fmt::format("frame {} is not after the one before", back - frames.begin() + 2),
             "the computer's clock was set back, or frames come in bursts: look at the frame interval");
}

void camera_check::judge_settings(const seen_frame& frame) {
  const light_settings& asked = camera_.initial;
  table_.add("exposure read back", shows(frame.info, {.exposureUs = asked.exposureUs}),
             fmt::format("{} us, configured {} us", frame.info.exposureUs, asked.exposureUs.value_or(0)),
             "the camera rounds or limits the exposure: configure what it reads back");
  if (!asked.gainDb) {
    table_.skip("gain read back", "gain_db is not configured");
    return;
  }
  table_.add("gain read back", shows(frame.info, {.gainDb = asked.gainDb}),
             fmt::format("{:.2f} dB, configured {} dB", frame.info.gainDb, *asked.gainDb),
             "the camera rounds or limits the gain: configure what it reads back");
}

// Applies a change and waits for the frames after it; none when they did not come.
std::optional<step_frames> camera_check::change(probe& camera, const light_settings& settings) {
  inForce_ = merged(inForce_, settings);
  light_settings full = settings;
  full.exposureUs = inForce_.exposureUs;
  full.irLevel = inForce_.irLevel;
  const auto applied = camera.apply(full, time_for(2));
  if (!applied || *applied < kFramesOfMean ||
      !camera.wait_frames(*applied + kFramesOfStep, time_for(kFramesOfStep))) {
    return std::nullopt;
  }
  return step_frames{camera.frames(), *applied};
}

// The sweeps of the configuration; without any, the exposure is halved.
void camera_check::test_sweeps(probe& camera) {
  inForce_ = camera_.initial;
  inForce_.gamma = 1.0F;  // a run starts without gamma
  if (sweeps_.empty()) {
    test_step(camera, kSweeps, {.exposureUs = *camera_.initial.exposureUs / 2});
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
  const bool mustShow = is_visible(inForce_, settings);
  const auto step = change(camera, settings);
  if (!step) {
    table_.add(
        name.c_str(), false, settings_text(settings) + ": no frames after it",
        "the camera or the driver did not take the settings; run 'mediagrabber run -v' for its log lines");
    return;
  }
  const std::size_t read = step->first([&](const seen_frame& each) { return shows(each.info, settings); });
  const double middle = (step->before() + step->after()) / 2;
  const bool grows = step->after() > step->before();
  const std::size_t seen = step->first([&](const seen_frame& each) { return (each.mean > middle) == grows; });
  const std::string picture =
      step->is_picture_changed()
          ? fmt::format("seen in picture {} (grey {:.1f} -> {:.1f})", seen, step->before(), step->after())
          : fmt::format("not seen in the picture (grey {:.1f})", step->after());
  const std::string readText = read == 0 ? "never read back" : fmt::format("read back with frame {}", read);
  table_.add(name.c_str(), read > 0 && (step->is_picture_changed() || !mustShow),
             fmt::format("{}: {}, {}", settings_text(settings), readText, picture),
             read == 0 ? "the camera refused or limited the setting; its log lines name it"
                       : "is the picture black or white, or the lens covered?");
}

void camera_check::test_ir(probe& camera) {
  constexpr const char* kName = "IR off and on";
  if (camera_.pins == 0) {
    table_.skip(kName, "no [[camera.pin]] is configured");
    return;
  }
  const auto off = change(camera, {.irLevel = 0});
  const auto on = change(camera, {.irLevel = std::max<std::int64_t>(camera_.initial.irLevel.value_or(0), 1)});
  if (!off || !on) {
    table_.add(kName, false, "no frames after it", "the camera or the driver did not take the IR level");
    return;
  }
  table_.add(kName, on->after() - off->after() > kGreyNoise,
             fmt::format("grey {:.1f} off, {:.1f} on", off->after(), on->after()),
             "look at the light's power, the line that it hangs on, and its polarity");
}

void camera_check::test_temperature(const probe& camera) {
  const float celsius = camera.temperature();
  const bool isThere = celsius > -300.0F;
  table_.add("temperature", isThere, isThere ? fmt::format("{:.1f} C", celsius) : "none",
             "the camera has no DeviceTemperature of the selector entry 'Internal'");
}

void camera_check::test_end(probe& camera) {
  if (!camera.is_running()) {
    table_.skip("ends on a signal", "the run ended before");
    return;
  }
  const auto took = camera.end();
  table_.add("ends on a signal", took <= kEndLongest,
             fmt::format("after {:.0f} ms", static_cast<double>(took.count()) / 1000),
             "the camera answers too slowly while its transfer is stopped");
}

}  // namespace

int check_cameras(const library_choice& chosen, const config& configuration) try {
  const camera_library library(find_framework(chosen.framework));
  const auto path = find_bundle(chosen.bundle);
  std::size_t failed = 0;
  std::size_t total[3] = {};
  std::unique_ptr<bundle_session> bundle;
  std::string startFailure;
  try {
    bundle = std::make_unique<bundle_session>(path);
  } catch (const library_error& error) {
    startFailure = error.what();
  }
  camera_extension(library).prefer(configuration.serials());
  for (const camera_config& camera : configuration.cameras) {
    fmt::print("{}\n", printable(camera.serial));
    check_table table;
    if (bundle) {
      table = camera_check(chosen, camera, configuration.sweeps_of(camera.serial)).run(library, *bundle);
    } else {
      table.add("library starts", false, startFailure, "choose the libraries with --framework and --bundle");
      table.skip_rest("the library did not start");
    }
    table.print();
    failed += table.count(verdict::failed);
    for (const auto which : {verdict::passed, verdict::failed, verdict::skipped}) {
      total[static_cast<std::size_t>(which)] += table.count(which);
    }
  }
  fmt::print("{} passed, {} failed, {} skipped\n", total[0], total[1], total[2]);
  return failed == 0 ? 0 : 1;
} catch (const interrupted&) {
  fmt::print("interrupted\n");
  return 1;
}

}  // namespace host
