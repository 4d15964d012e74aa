// What a thread's log lines belong to, and the failures that it logged: who created a device learns from them
// why that failed, as the bundle's calls only say that they did.
#ifndef HOST_ACQUIRE_THREAD_LOG_H
#define HOST_ACQUIRE_THREAD_LOG_H

#include <string>

namespace host {

/// Names the camera of this thread in every line that it logs, for the length of a scope. Needs no memory.
class camera_log_scope {
 public:
  /// `serial` must outlive the scope.
  explicit camera_log_scope(const std::string& serial) noexcept;
  ~camera_log_scope();
  camera_log_scope(const camera_log_scope&) = delete;
  camera_log_scope& operator=(const camera_log_scope&) = delete;
};

/// The camera of the scope that this thread is in; empty outside.
const std::string& logged_camera();

/// From now on what this thread logs as failures is how something ends that is meant to end: the console
/// shows it among the details. Until the scope ends, or `isExpected` is false.
void expect_failures(bool isExpected);

/// From now on what this thread logs as a state is a detail, as it changes so often.
void log_details(bool areDetails);

/// The level at which the console shows a line that this thread logs at `level`.
int shown_level(int level);

/// Told by the console of every line of level 1 and 2 that this thread logs.
void remember_failure(std::string text);

/// The last failures (level 1 and 2) that this thread logged since it asked last, oldest first and joined by
/// "; ". At most the last six.
std::string take_failures();

}  // namespace host

#endif
