// Frames on their way from acquisition to files and pipes: a bounded pool of copies and the thread that
// writes them.
#ifndef HOST_OUTPUTS_FRAME_WRITER_H
#define HOST_OUTPUTS_FRAME_WRITER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <span>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "host/acquire/frame_taker.h"

namespace host {

/// A copy of a frame.
struct stored_frame {
  cam_frame_info info{};
  std::uint64_t number = 0;     ///< of the frames that the camera's runs handed over, from 1
  std::uint64_t arrivalUs = 0;  ///< realtime clock, microseconds
  std::vector<std::uint8_t> pixels;
};

/// Something can't be written; the text says what and why, for people.
class output_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Nothing can be written any more, and that is no error: the reader of a video went away.
class output_over : public output_error {
 public:
  using output_error::output_error;
};

/// "the disk is full (No space left on device)" and the like.
std::string write_failure(int error);

/// Where frames go. Used by the writer's thread only.
class frame_sink {
 public:
  virtual ~frame_sink() = default;
  /// Writes one frame, wholly or not at all as far as the medium allows, and gives the bytes that it took.
  /// output_error when it can't, or when `stop` was requested while it waited for a reader.
  virtual std::uint64_t write(const stored_frame& frame, const std::stop_token& stop) = 0;
  /// Puts what was written where a power cut can't reach it. Called about once a second, also while no frame
  /// comes, and at the end. output_error when it can't.
  virtual void settle() {}
};

struct output_totals {
  std::uint64_t written = 0;  ///< frames
  std::uint64_t dropped =
      0;  ///< frames that did not fit into the pool or could not be written, until its end
  std::uint64_t bytes = 0;
};

/// Takes frames from one acquisition thread and never makes it wait: what does not fit into the pool, or for
/// which there is no memory, is dropped and counted. The failure of a sink is reported once, and every
/// further frame is tried again.
class frame_writer final : public frame_taker {
 public:
  /// Takes every `every`-th frame. The pool is allocated here: as many frames of `frameBytes` as fit into
  /// 64 MiB, at least 8 and at most 256. `camera` names the camera in log lines.
  frame_writer(std::string camera, std::unique_ptr<frame_sink> sink, std::size_t frameBytes,
               std::uint64_t every);
  ~frame_writer() { stop(); }
  frame_writer(const frame_writer&) = delete;
  frame_writer& operator=(const frame_writer&) = delete;

  /// Copies the pixels and never waits for the sink. A frame that is larger than those before (the window was
  /// configured anew) makes its place in the pool grow.
  void offer(const cam_frame_info& info, std::uint64_t number, std::span<const std::uint8_t> pixels) override;
  /// Whether all that was taken has been written or dropped.
  bool is_idle() const;
  /// Whether the sink takes no frames any more (output_over).
  bool is_over() const { return isOver_.load(std::memory_order_relaxed); }
  /// Drops what waits and ends; nothing may be offered any more.
  void stop();

  output_totals totals() const;
  std::size_t pool_size() const { return poolSize_; }

 private:
  using frame_list = std::list<stored_frame>;  // frames go from list to list without any memory

  void work(const std::stop_token& stop);
  bool await_frame(std::unique_lock<std::mutex>& lock, const std::stop_token& stop);
  void write(const stored_frame& frame, const std::stop_token& stop);
  void settle();
  void report(const char* reason);

  std::string camera_;
  std::unique_ptr<frame_sink> sink_;
  std::uint64_t every_;
  std::size_t poolSize_;

  mutable std::mutex mutex_;
  std::condition_variable_any wake_;
  frame_list free_;
  frame_list waiting_;
  bool isWriting_ = false;

  std::atomic<std::uint64_t> written_{0};
  std::atomic<std::uint64_t> dropped_{0};
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<bool> isOver_{false};
  std::uint64_t failedInRow_ = 0;                       // the writer's, as are those below
  bool isReported_ = false;                             // a failure, since the last frame that was written
  std::chrono::steady_clock::time_point nextSettle_{};  // monotonic
  std::jthread writer_;
};

}  // namespace host

#endif
