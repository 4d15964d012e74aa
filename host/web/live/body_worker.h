// Bodies of answers that take long to make, such as PNG files.
#ifndef HOST_WEB_LIVE_BODY_WORKER_H
#define HOST_WEB_LIVE_BODY_WORKER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "host/web/live/outbox.h"
#include "host/web/message.h"

namespace host {

/// Makes one body after the other, on a thread of low priority, so that neither the server's thread nor
/// acquisition waits for it. On any thread.
class body_worker {
 public:
  /// Bodies that wait, are being made or are being sent. They bound the memory that clients can cost.
  static constexpr std::size_t kBodiesMax = 8;
  /// A body that was not read by then makes room for another.
  static constexpr std::chrono::seconds kReadLongest{30};

  body_worker();
  /// Ends the streams of bodies that still wait.
  ~body_worker();
  body_worker(const body_worker&) = delete;
  body_worker& operator=(const body_worker&) = delete;

  /// A stream of the body that `make` returns. Null when there are `kBodiesMax` already. `make` is called on
  /// the worker's thread. It is not called when the reader has left by then. An exception of it breaks the
  /// stream.
  std::shared_ptr<web_stream> start(std::function<std::string()> make);

 private:
  struct job {
    std::weak_ptr<outbox> out;
    std::function<std::string()> make;
  };
  struct body {
    std::weak_ptr<outbox> out;
    std::chrono::steady_clock::time_point started;
  };

  void work(const std::stop_token& stop);
  void make_room();

  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::deque<job> jobs_;
  std::vector<body> bodies_;  // of which a reader may still have the stream
  std::jthread thread_;
};

/// Lowers the priority of the calling thread, so that it takes no processor time from acquisition and
/// recording.
void lower_priority();

}  // namespace host

#endif
