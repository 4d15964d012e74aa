// How many frames never came, and why: from the records of the camera library where it keeps them, else from
// the times at which frames arrive.
#ifndef HOST_ACQUIRE_LOSS_H
#define HOST_ACQUIRE_LOSS_H

#include <camera_extension.h>

#include <cstdint>
#include <optional>
#include <string>

namespace host {

/// Counts the frames of one camera that a host should have had and did not get, over all of its runs.
///
/// Within a run the camera's frame numbers tell, exactly: number 10 right after number 7 is two missed
/// frames. Where they are not known (0), a gap between two arrivals of more than one and a half periods
/// counts as so many frames, which is an estimate: a host that was held up finds buffered frames after the
/// gap. A silence of a second or three periods is an outage and counts as the frames of that time, whether
/// the camera sent any or not, as does the time between two runs.
class missed_frames {
 public:
  /// Frames come so often, microseconds.
  void run_started(double periodUs);
  /// A frame arrived with this number; times of any clock that does not go backwards. Gives the interval
  /// before it; none for the first frame of a run.
  std::optional<std::uint64_t> arrived(std::uint64_t nowUs, std::uint64_t id);

  /// Never decreases; includes the outage that goes on.
  std::uint64_t count(std::uint64_t nowUs) const;
  bool is_estimate() const { return isEstimate_; }

 private:
  bool is_outage(std::uint64_t intervalUs) const;
  std::uint64_t owed(std::uint64_t intervalUs) const;

  double periodUs_ = 1;
  std::uint64_t count_ = 0;
  std::optional<std::uint64_t> lastUs_;
  std::uint64_t lastId_ = 0;  // 0: not known, or of an earlier run
  bool isFirstOfRun_ = true;
  bool isEstimate_ = false;
};

/// A camera's health record over all of its openings: the library's starts anew with each.
class stream_health {
 public:
  /// The camera was opened again.
  void reopened();
  void update(const camera_extension_health_record& record);
  /// Counters since the program started; the rest as granted now. None before the first record.
  const std::optional<camera_extension_health_record>& total() const { return total_; }

 private:
  camera_extension_health_record before_{};  // of earlier openings
  std::optional<camera_extension_health_record> total_;
};

/// The counters of `now` less those of `before`.
camera_extension_health_record difference(const camera_extension_health_record& now,
                                          const camera_extension_health_record& before);

/// Frames that the record counts as lost, whatever the cause.
std::uint64_t frames_lost(const camera_extension_health_record& record);

/// Of what was lost in a record, the causes and what to look at: "8 incomplete (40 packets lost on the path:
/// ...)". Empty when nothing was lost.
std::string loss_text(const camera_extension_health_record& record);

/// Decides when a run that loses frames says so: at once, and then at most every ten seconds.
class loss_reporter {
 public:
  /// The text to be logged now, of what was missed since the last one; none when it is not due. `missed` as
  /// missed_frames counts.
  std::optional<std::string> due(std::uint64_t nowUs, std::uint64_t missed,
                                 const std::optional<camera_extension_health_record>& total);

 private:
  std::optional<std::uint64_t> lastUs_;
  std::uint64_t missed_ = 0;
  camera_extension_health_record record_{};
};

}  // namespace host

#endif
