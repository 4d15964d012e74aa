// A camera under test: runs its device on a thread and lets the tester wait for frames and change settings.
#ifndef HOST_CHECK_PROBE_H
#define HOST_CHECK_PROBE_H

#include <mediagrabber/device.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/acquire/extension.h"
#include "host/acquire/library.h"
#include "host/acquire/limits.h"
#include "host/check/prediction.h"
#include "host/check/table.h"
#include "host/config/config.h"

namespace host {

/// Raised by the waits of a probe when SIGINT or SIGTERM came.
class interrupted {};

/// A frame that was handed over, without its pixels.
struct seen_frame {
  std::uint64_t arrivalUs = 0;  ///< steady_us
  Zavik::Support::MediaGrabber::cam_frame_info info{};
  grey_histogram greys{};
  double mean = 0;                 ///< mean grey of the picture
  std::uint64_t id = 0;            ///< as the camera counts; 0: not known
  std::uint64_t cameraTimeNs = 0;  ///< on the camera's clock, when the id is known
};

class probe final : private Zavik::Support::MediaGrabber::device_handler_like,
                    private Zavik::Support::MediaGrabber::cam_stream_handler_like {
 public:
  /// Prepares the camera and creates the device. All references must outlive the probe.
  probe(const camera_library& library, const bundle_session& bundle, const camera_config& camera);
  /// Ends the run, if it still goes on, and destroys the device.
  ~probe();
  probe(const probe&) = delete;
  probe& operator=(const probe&) = delete;

  /// What had to be done before the device could be created; empty: nothing.
  const std::string& preparation() const { return preparation_; }
  bool is_created() const { return device_ != nullptr; }
  /// The bundle's failures while the device was created.
  const std::string& failures() const { return failures_; }

  void start();
  /// Waits until so many frames were seen in all, at most so long, or until the run ended. Shows what it
  /// waits for.
  bool wait_frames(std::size_t count, std::chrono::milliseconds longest, progress_line& progress);
  /// Applies settings after the next frame, and gives the number of frames seen by then; none when no frame
  /// came within `longest`.
  std::optional<std::size_t> apply(const light_settings& settings, std::chrono::milliseconds longest);
  /// Asks the run to end and gives the time until it did.
  std::chrono::microseconds end();

  std::vector<seen_frame> frames() const;
  /// Degrees Celsius; none when the bundle reads none.
  std::optional<float> temperature() const;
  /// The library's record of the stream; none without the extension.
  std::optional<camera_extension_health_record> health() const { return extension_.health(camera_.serial); }
  /// What was logged as failures while the device runs.
  std::string run_failures() const;
  /// What the camera takes; nothing is known without the extension.
  light_limits limits() const;
  bool is_running() const;

 private:
  void heartbeat() override {}
  std::int32_t getPendingSignal() override;
  bool tryPopPendingSweepConf(Zavik::Support::rw_table_like* sweep) override;
  void onFrameTick(float sensorTempC) override;
  void onFrame(const Zavik::Support::MediaGrabber::cam_frame_info* info, const std::uint8_t* data,
               std::uint32_t byteCount) override;
  void onNoFrame() override;

  void note_failures();

  template <class Condition>
  bool wait_until(std::chrono::milliseconds longest, Condition isMet);

  const camera_config& camera_;
  const camera_extension extension_;
  Zavik::Support::MediaGrabber::device_like* device_ = nullptr;
  std::string preparation_;
  std::string failures_;
  bool isSignalGiven_ = false;  // the runner's

  mutable std::mutex mutex_;
  std::condition_variable news_;
  std::vector<seen_frame> frames_;
  std::optional<light_settings> pending_;
  std::size_t appliedAt_ = 0;
  std::optional<float> temperatureC_;
  std::string runFailures_;
  bool isRunning_ = false;
  bool isEndWanted_ = false;
  std::thread thread_;
};

}  // namespace host

#endif
