// Whether a camera is still ours, as all parts of an open camera and the threads of Aravis see it.
#ifndef PLATFORM_ARAVIS_LINK_H
#define PLATFORM_ARAVIS_LINK_H

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

namespace gige {

// Once lost it stays lost: the camera is to be closed and opened again. Its lock guards what a waiting
// consumer looks at, and is held only for moments, never while the camera is asked something: the threads
// that receive frames take it.
class link {
 public:
  explicit link(std::string serial) : serial_(std::move(serial)) {}

  // The first time, says so in the log, then wakes whoever waits, who thus finds the line there.
  void lose(const std::string& why);
  bool lost() const { return lost_.load(std::memory_order_acquire); }

  const std::string& serial() const { return serial_; }
  std::mutex& mutex() { return mutex_; }
  std::condition_variable& wake() { return wake_; }

 private:
  const std::string serial_;
  std::atomic<bool> told_{false};
  std::atomic<bool> lost_{false};
  std::mutex mutex_;
  std::condition_variable wake_;
};

}  // namespace gige

#endif
