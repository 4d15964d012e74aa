// One moment of a camera's figures, and the texts that are made of it.
#ifndef HOST_REPORT_STATUS_H
#define HOST_REPORT_STATUS_H

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "host/acquire/camera_runner.h"
#include "host/outputs/frame_writer.h"

namespace host {

struct camera_figures {
  std::string serial;
  std::uint64_t nowUs = 0;  ///< steady_us of the moment
  camera_totals totals;
  interval_histogram intervals;
  std::optional<output_totals> files;  ///< none without --record
  std::optional<output_totals> video;  ///< none without --y4m
};

/// The writers may be null: --record or --y4m was not asked for.
camera_figures figures_of(const camera_slot& slot, const frame_writer* files, const frame_writer* video);

double seconds(std::uint64_t us);
/// Seconds; none before the first frame.
std::optional<double> since_last_frame(const camera_figures& figures);

/// Rates over the last seconds.
class rate_meter {
 public:
  struct rates {
    double framesPerSecond = 0;
    double bytesPerSecond = 0;  ///< written to files and video
  };
  /// The rates since the moment that lies about two seconds back.
  rates update(const camera_figures& now);

 private:
  struct sample {
    std::uint64_t timeUs;
    std::uint64_t frames;
    std::uint64_t bytes;
  };
  std::deque<sample> samples_;
};

/// "SIM00001 #120 30.0/s missed 0 gap 12ms 5000us 6.0dB 41.2C rec 120/0 12.3MB/s": the figures of a camera in
/// the width of a terminal.
std::string status_line(const camera_figures& figures, const rate_meter::rates& rates);

/// What one camera did, in a few lines without a newline at the end.
std::string summary(const camera_figures& figures, const std::vector<setting_outcome>& settings);

/// One line of --stats: the bundle's own statistics text beside the host's counters.
std::string stats_line(const camera_figures& figures, const rate_meter::rates& rates,
                       const std::string& bundleStats);

}  // namespace host

#endif
