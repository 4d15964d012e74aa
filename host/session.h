// `mediagrabber run`: all cameras of a configuration until the end, and everything that goes on beside them.
#ifndef HOST_SESSION_H
#define HOST_SESSION_H

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/acquire/camera_runner.h"
#include "host/acquire/extension.h"
#include "host/acquire/library.h"
#include "host/config/config.h"
#include "host/live_page.h"
#include "host/options.h"
#include "host/outputs/frame_writer.h"
#include "host/report/camera_snapshot.h"
#include "host/report/line_file.h"
#include "host/report/log_tail.h"
#include "host/report/service.h"
#include "host/report/standard_error.h"
#include "host/web/web_server.h"

namespace host {

/// The configuration that the command line names, with the cameras of --camera only. What is wrong with
/// either is among its errors.
config_result load_config(const options& chosen);

/// A camera's slot, and the outputs that take its frames.
struct camera_outputs {
  camera_slot slot;
  std::unique_ptr<frame_writer> files;      ///< null without --record
  std::unique_ptr<frame_writer> video;      ///< null without --y4m
  std::shared_ptr<preview_source> preview;  ///< null without --web

  camera_outputs(const camera_config& camera, const options& chosen);
};

/// Lives on the main thread; the cameras, their writers and the web server have threads of their own.
class session {
 public:
  /// output_error or std::runtime_error when something of the command line can't be opened.
  session(const options& chosen, config configuration, const camera_library& library,
          const bundle_session& bundle, standard_error& error, const log_tail& log);
  ~session();
  session(const session&) = delete;
  session& operator=(const session&) = delete;

  /// Runs to the end and gives the exit code.
  int run();

 private:
  using clock = std::chrono::steady_clock;

  // What the watchdog saw of a camera when it looked last.
  struct last_activity {
    std::uint64_t count = 0;
    bool isHanging = false;
  };

  std::vector<camera_snapshot> snapshots() const;
  camera_slot& slot_for(const camera_config& camera);
  void start_cameras();
  void end_cameras(std::int32_t signal);
  void cancel_waiting();
  bool wait_for_runners(std::chrono::milliseconds longest);
  void reload();
  void handle(int signal);
  bool is_over();
  bool is_failure() const;
  bool is_video_over() const;
  void look_after();
  void serve();
  void serve_again();
  void serve_live_page();
  void visit_cameras(const std::function<void(const live_source&)>& visit) const;
  void show_status();
  void write_stats();
  void cancel_long_openings();
  bool are_cameras_alive();
  bool have_cameras_begun() const;
  bool open_outputs(const config& fresh);
  void forget_cameras();
  void finish_outputs(const std::vector<std::unique_ptr<camera_outputs>>& cameras, bool isInterrupted);
  void print_summary(const std::vector<std::unique_ptr<camera_outputs>>& cameras);

  const options options_;
  config config_;
  const camera_extension extension_;
  const run_services services_;
  standard_error& error_;
  const log_tail& log_;
  service_notifier service_;

  mutable std::mutex camerasMutex_;  // guards the list against the web server
  std::vector<std::unique_ptr<camera_outputs>> cameras_;
  std::vector<std::unique_ptr<camera_runner>> runners_;

  clock::time_point start_ = clock::now();
  clock::time_point nextStatus_ = start_;
  clock::time_point nextStats_ = start_;
  std::map<std::string, rate_meter> meters_;
  std::map<std::string, last_activity> activity_;
  std::optional<line_file> stats_;
  bool isStatsBroken_ = false;
  bool isInterrupted_ = false;  // by a signal
  bool hasFailed_ = false;      // the program ends, with 1
  bool hasGivenUp_ = false;     // the program ends with 1 once the other cameras are done
  std::unique_ptr<web_server> web_;
  std::unique_ptr<live_page> live_;
};

}  // namespace host

#endif
