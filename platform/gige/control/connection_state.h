// Whether a camera is still connected, and how long its callers may still wait for it.
#ifndef PLATFORM_GIGE_CONTROL_CONNECTION_STATE_H
#define PLATFORM_GIGE_CONTROL_CONNECTION_STATE_H

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "platform/gige/control/descriptor.h"

namespace gige {

// For `hurry` at the closing of a camera, which takes 0.1 s at most. The difference is for threads that have
// to be scheduled.
constexpr std::chrono::milliseconds closingBudget(80);

// Everything that waits for one camera shares one of these: the control channel, the download of the
// description, the consumer of frames. It exists before the first command, so that opening a camera can be
// cancelled, too. A lost connection stays lost: the camera has to be closed and opened again.
//
// Threads: every function may be called from any thread at any time. Only `on_loss` waits.
class connection_state {
 public:
  using clock = std::chrono::steady_clock;

  // `camera` is the serial number, for log lines and exceptions. Raises std::system_error when the process
  // has no descriptor left.
  explicit connection_state(std::string camera);

  // Declares the connection lost. `why` follows the words "camera S1 is lost:". The first call logs the loss,
  // ends all waits and calls the handler of `on_loss`. Later calls do nothing.
  void lose(const std::string& why);
  // Does the same because a caller does not want to wait any longer.
  void cancel();
  // Limits all waits from now on to `budget` altogether, those in progress included. Commands are still sent.
  // Of several calls the earliest end counts. For closing a camera.
  void hurry(std::chrono::milliseconds budget);

  // True after `lose` and after `cancel`.
  bool is_lost() const { return state() == condition::lost || is_cancelled(); }
  bool is_cancelled() const { return state() == condition::cancelled; }
  // Raises camera_lost or wait_cancelled, with the reason, when the connection is lost.
  void raise_if_lost() const;
  // The end of all waits; time_point::max() before the first call of `hurry`.
  clock::time_point deadline() const;
  bool is_hurried() const { return deadline() != clock::time_point::max(); }

  // A descriptor for poll(): readable from the first `lose`, `cancel` or `hurry` on, for good. Valid as long
  // as this object.
  int wake_descriptor() const { return wake_.get(); }

  // Sets the handler of a loss, which replaces the one before; an empty function removes it. The handler is
  // called once, on the thread that calls `lose` or `cancel`, or here when the connection is lost already.
  // This call waits for a handler that is running. A handler therefore neither waits nor calls `on_loss`.
  void on_loss(std::function<void()> handler);

  const std::string& camera() const { return camera_; }

 private:
  // `ending` lasts while the reason is written and logged. Nobody acts on it.
  enum class condition { connected, ending, lost, cancelled };

  condition state() const { return condition_.load(std::memory_order_acquire); }
  bool begin_end(const std::string& why);
  void end(condition how);
  void call_handler();  // under handlerMutex_
  void wake_waiters() const;

  const std::string camera_;
  const descriptor wake_;  // an eventfd
  std::atomic<condition> condition_{condition::connected};
  std::string why_;  // written before the condition is lost or cancelled, never after
  std::atomic<clock::rep> deadline_;
  std::mutex handlerMutex_;
  std::function<void()> lossHandler_;
};

}  // namespace gige

#endif
