// One moment of a camera: what all texts about it are made from.
#ifndef HOST_REPORT_CAMERA_SNAPSHOT_H
#define HOST_REPORT_CAMERA_SNAPSHOT_H

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "host/acquire/camera_runner.h"
#include "host/outputs/frame_writer.h"

namespace host {

struct camera_snapshot {
  std::string serial;
  std::uint64_t nowUs = 0;  ///< steady_us of the moment
  camera_status status;
  interval_histogram intervals;
  std::optional<output_totals> files;  ///< none without --record
  std::optional<output_totals> video;  ///< none without --y4m
};

/// The writers may be null: --record or --y4m is not on the command line.
camera_snapshot snapshot_of(const camera_slot& slot, const frame_writer* files, const frame_writer* video);

double seconds(std::uint64_t us);
/// Seconds; none before the first frame.
std::optional<double> since_last_frame(const camera_snapshot& now);

/// Rates of one camera over the last two seconds.
class rate_meter {
 public:
  struct rates {
    double framesPerSecond = 0;
    double bytesPerSecond = 0;  ///< written to files and video
  };
  /// The rates since the moment that lies about two seconds back.
  rates update(const camera_snapshot& now);

 private:
  struct sample {
    std::uint64_t timeUs;
    std::uint64_t frames;
    std::uint64_t bytes;
  };
  std::deque<sample> samples_;
};

/// "2", or "about 2" for an estimate.
std::string missed_text(const camera_status& status);

}  // namespace host

#endif
