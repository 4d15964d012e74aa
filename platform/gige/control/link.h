// Whether a camera is still ours, and how long anybody may still wait for it.
#ifndef PLATFORM_GIGE_CONTROL_LINK_H
#define PLATFORM_GIGE_CONTROL_LINK_H

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "platform/gige/control/descriptor.h"

namespace gige {

// Shared by all that wait for one camera: the control channel, the fetching of a description, the consumer of
// frames. Made before the camera is asked for the first time, so that opening it can be cancelled, too. Once
// lost it stays lost: the camera is to be closed and opened again.
//
// Threads: everything may be called from any thread at any time. Nothing here waits, but for `on_loss`.
class link {
 public:
  using clock = std::chrono::steady_clock;

  // `camera` is what log lines and exceptions call it: its serial number. Raises std::system_error when the
  // process has no descriptor left.
  explicit link(std::string camera);

  // The camera is lost, and why, in words that follow "camera S1 is lost:". The first time, this says so in
  // the log, ends all waiting, then calls who is to be told; every other time it does nothing.
  void lose(const std::string& why);
  // The same for a wait that somebody does not want to last any longer.
  void cancel();
  // For closing: all waiting from now on takes no longer than this altogether, also of calls that wait
  // already. Commands are sent all the same. The earliest end counts; it cannot be put off.
  void hurry(std::chrono::milliseconds budget);

  // Lost or cancelled; and only the latter.
  bool lost() const { return state_now() == state::lost || cancelled(); }
  bool cancelled() const { return state_now() == state::cancelled; }
  // Raises camera_lost or wait_cancelled, with the reason, when it is lost.
  void check() const;
  // When waiting has to end; time_point::max() for as long as nobody hurries.
  clock::time_point latest() const;
  bool hurried() const { return latest() != clock::time_point::max(); }

  // A descriptor for poll() beside the one that is waited for: readable, and for good, once the link is lost
  // or hurried. It lives as long as the link.
  int event() const { return event_.get(); }

  // Calls `told` when the camera is lost, at once when it is already, on the thread that found out. Replaces
  // who was told before; an empty function ends it. Waits for a call to `told` that is under way, which
  // therefore must neither wait nor call this.
  void on_loss(std::function<void()> told);

  const std::string& camera() const { return camera_; }

 private:
  // `ending` is for the time in which the reason is written and logged: nobody acts on it.
  enum class state { up, ending, lost, cancelled };

  state state_now() const { return state_.load(std::memory_order_acquire); }
  bool begin_ending(const std::string& why);
  void end(state how);
  void tell();  // with the lock `telling_`
  void wake_waiters() const;

  const std::string camera_;
  const descriptor event_;
  std::atomic<state> state_{state::up};
  std::string why_;  // written before the state says lost or cancelled, never after
  std::atomic<clock::rep> latest_;
  std::mutex telling_;
  std::function<void()> told_;
};

}  // namespace gige

#endif
