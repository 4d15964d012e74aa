// One camera, acquired on a thread of its own: its device is created, run, and created again after a failure.
#ifndef HOST_ACQUIRE_CAMERA_RUNNER_H
#define HOST_ACQUIRE_CAMERA_RUNNER_H

#include <mediagrabber/device.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/acquire/camera_status.h"
#include "host/acquire/extension.h"
#include "host/acquire/frame_taker.h"
#include "host/acquire/library.h"
#include "host/acquire/loss.h"
#include "host/acquire/manual_settings.h"
#include "host/acquire/settings_queue.h"
#include "host/acquire/sweeps.h"
#include "host/config/config.h"

namespace host {

/// What of a camera outlives its runner: its status, its settings, and who takes its frames.
struct camera_slot {
  std::string serial;
  camera_status_keeper status;
  settings_queue settings;
  manual_settings manual{settings};
  std::vector<frame_taker*> takers;  ///< not owned
  std::atomic<std::uint64_t> handedOver{0};

  explicit camera_slot(std::string name) : serial(std::move(name)) {}
};

struct run_limits {
  std::optional<std::uint64_t> frames;       ///< handed over, after which the run is done
  bool restart = true;                       ///< whether a device that fails is created again
  std::optional<std::uint64_t> failuresMax;  ///< failures in a row that are too many
};

enum class run_outcome : std::uint8_t {
  running,
  done,     ///< ended as the host wanted
  failed,   ///< a device failed, and is not created again
  givenUp,  ///< only another configuration, or another camera, can help
};

/// Why no device could be created for a camera.
struct refusal_reasons {
  std::vector<std::string> lines;  ///< for people; empty: nothing was found
  bool isLasting = false;          ///< only another configuration, or another camera, can help
};

/// What all runners use; must outlive them.
struct run_services {
  const camera_library& library;
  const camera_extension& extension;
  const bundle_session& bundle;
  std::function<refusal_reasons(const camera_config&)> diagnose;  ///< on a runner's thread, without a device
};

/// Runs from construction until it is done or has failed, or until its end is requested.
class camera_runner final : private Zavik::Support::MediaGrabber::device_handler_like,
                            private Zavik::Support::MediaGrabber::cam_stream_handler_like {
 public:
  /// All references must outlive the runner.
  camera_runner(const camera_config& camera, const std::vector<sweep_config>& sweeps,
                const run_services& services, camera_slot& slot, const run_limits& limits);
  /// Ends the run and waits for it, at most for one wait of the bundle, a second.
  ~camera_runner();
  camera_runner(const camera_runner&) = delete;
  camera_runner& operator=(const camera_runner&) = delete;

  /// Asks the run to end: with `signal` kPENDING_SIGNAL__SIGHUP when the device is to be made anew by
  /// another runner, with kPENDING_SIGNAL__SIGTERM for good.
  void request_end(std::int32_t signal);
  run_outcome outcome() const { return outcome_.load(); }
  const std::string& serial() const { return slot_.serial; }
  /// Grows as long as the runner's thread is alive.
  std::uint64_t activity() const { return slot_.status.activity(); }
  /// When the opening of the camera began, steady_us; 0: it is not being opened. Opening may take long, and
  /// `activity` stands still meanwhile.
  std::uint64_t opening_since() const { return openingSinceUs_.load(); }
  /// Whether a frame came, or a device failed.
  bool has_begun() const;
  /// The bundle's statistics of the device as JSON; empty while there are none.
  std::string device_stats();

 private:
  using device_like = Zavik::Support::MediaGrabber::device_like;
  struct device_closer {
    camera_runner* owner;
    void operator()(device_like*) const { owner->close_device(); }
  };

  // On the runner's thread.
  void work();
  run_outcome run_once();
  run_outcome follow_failure();
  device_like* create_device();
  bool run_device();
  void close_device();
  void explain_failure();
  void queue_due_sweep();
  bool drop_refused_sweep();
  void start_figures();
  void read_health();
  void report_losses(std::uint64_t nowUs);
  failure_reason reason_of_failure() const;
  std::string failure_text() const;
  std::string failure_advice() const;
  bool report_failure();
  void pause(std::chrono::milliseconds length);
  bool is_end_wanted() const;

  // Called by the bundle, on the runner's thread.
  void heartbeat() override {}
  std::int32_t getPendingSignal() override;
  bool tryPopPendingSweepConf(Zavik::Support::rw_table_like* sweep) override;
  void onFrameTick(float sensorTempC) override;
  void onFrame(const cam_frame_info* info, const std::uint8_t* data, std::uint32_t byteCount) override;
  void onNoFrame() override;

  const camera_config camera_;
  const run_services& services_;
  camera_slot& slot_;
  const run_limits limits_;
  sweep_schedule schedule_;
  loss_reporter losses_;
  std::uint64_t framesOfRun_ = 0;
  std::uint64_t lastFrameUs_ = 0;  // monotonic; the start of the run before the first one
  bool isSignalGiven_ = false;
  bool isCreated_ = false;     // the device of this attempt
  std::string silenceAdvice_;  // what to do about the silence that ended the run; empty: none did
  refusal_reasons refusal_;    // of the creation that failed last; none after one that did not

  std::mutex deviceMutex_;  // guards the device against being destroyed while its statistics are read
  device_like* device_ = nullptr;

  std::mutex endMutex_;
  std::condition_variable endWanted_;
  std::atomic<std::int32_t> endSignal_{Zavik::Support::MediaGrabber::kPENDING_SIGNAL__NONE};
  std::atomic<run_outcome> outcome_{run_outcome::running};
  std::atomic<std::uint64_t> openingSinceUs_{0};
  std::thread thread_;
};

}  // namespace host

#endif
