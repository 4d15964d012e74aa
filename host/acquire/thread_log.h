// The camera that a thread's log lines belong to, and the failures that the thread logged. A call of the
// bundle tells only that it failed; the lines that it logged tell why.
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

/// Failures that this thread logs from now on belong to an end that the host wants, and are shown as details.
/// Until the scope ends, or `isExpected` is false.
void expect_failures(bool isExpected);

/// States that this thread logs from now on change often, and are shown as details.
void log_details(bool areDetails);

/// The level at which a line is shown that this thread logs at `level`.
int shown_level(int level);

/// Keeps a line of level 1 or 2 of this thread for take_failures.
void remember_failure(std::string text);

/// The failures that this thread logged since the last call, oldest first and joined by "; ". At most the
/// last six.
std::string take_failures();

}  // namespace host

#endif
