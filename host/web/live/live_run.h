// What the page and its API read from a run, and what they can do to it.
#ifndef HOST_WEB_LIVE_LIVE_RUN_H
#define HOST_WEB_LIVE_LIVE_RUN_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/acquire/camera_status.h"
#include "host/acquire/settings_queue.h"
#include "host/config/config.h"
#include "host/report/log_tail.h"
#include "host/web/live/preview.h"

namespace host {

/// What a camera is doing.
enum class camera_phase : std::uint8_t {
  starting,  ///< its device is being created, or no frame came yet
  running,
  silent,   ///< runs, but frames are overdue
  down,     ///< the device failed and is created again
  given_up  ///< the device failed and is not created again
};

/// The limits of one setting.
struct setting_limits {
  double min = 0;
  double max = 0;
  bool areOfCamera = false;  ///< else they are the configuration's ranges
};

/// One row that a sweep can carry, as a control on the page.
struct setting_control {
  std::string key;  ///< of the configuration: "exposure_us"
  std::string unit;
  setting_limits limits;
  bool isWhole = false;  ///< whole numbers only
  std::optional<double> inForce = std::nullopt;
  std::optional<double> configured = std::nullopt;
  /// What "back to configuration" gives: where the configuration leaves it out, what was in force before the
  /// first settings by hand; none when that is unknown.
  std::optional<double> restored = std::nullopt;
};

enum class entry_state : std::uint8_t { waiting, applied, read_back, refused };

/// One entry of a device's queue of settings.
struct setting_entry {
  std::uint64_t id = 0;
  std::string author;  ///< address, and a name if one was entered; "sweep 2"
  std::string text;    ///< "exposure 2500 us, gain 6 dB"
  entry_state state = entry_state::waiting;
  /// It was applied before this frame.
  std::optional<std::uint64_t> beforeFrame = std::nullopt;
  /// The first frame that carries its exposure and gain.
  std::optional<std::uint64_t> readBackFrame = std::nullopt;
  /// The longest interval right after it.
  std::optional<std::uint64_t> gapUs = std::nullopt;
  std::string refusal;
};

struct live_camera {
  std::string serial;
  camera_phase phase = camera_phase::starting;
  std::string reason;   ///< of a failure; empty when there is none
  std::string advice;   ///< what to do about it
  double phaseS = 0;    ///< seconds since the phase began
  double againInS = 0;  ///< of a camera that is down: seconds until its device is created again
  double frameRateHz = 0;
  double rateHz = 0;  ///< frames over the last seconds
  camera_status totals;
  std::uint64_t handedOver = 0;
  std::uint64_t longestGapUs = 0;
  std::uint64_t recorded = 0;
  std::uint64_t dropped = 0;
  bool isRecording = false;
  bool isHeld = false;  ///< settings were applied by hand: its sweeps wait for "resume"
  bool canUndo = false;
  std::vector<setting_control> controls;
  std::vector<setting_entry> entries;  ///< the last ones, oldest first
};

/// What can be done with settings that were applied by hand.
enum class settings_command : std::uint8_t {
  undo,           ///< back to what was in force before the last settings by hand
  configuration,  ///< back to the configuration
  resume          ///< the sweeps go on
};

/// Called on the server's and the viewers' threads. Nothing in it waits for a camera.
class live_run {
 public:
  virtual std::vector<live_camera> cameras() = 0;
  /// Null when there is no such camera.
  virtual std::shared_ptr<preview_source> preview(const std::string& serial) = 0;
  /// Queues settings, or refuses values beyond the camera's limits. `author` is for people.
  virtual queue_answer apply(const std::string& serial, const light_settings& settings,
                             const std::string& author) = 0;
  virtual queue_answer command(const std::string& serial, settings_command what,
                               const std::string& author) = 0;
  /// What Prometheus reads.
  virtual std::string metrics() = 0;
  virtual const log_tail& log() = 0;
  /// The path of the configuration, for people.
  virtual std::string config_name() = 0;

 protected:
  ~live_run() = default;
};

}  // namespace host

#endif
