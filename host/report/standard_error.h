// Standard error: lines one below the other and, on a terminal, a block of status lines below them.
#ifndef HOST_REPORT_STANDARD_ERROR_H
#define HOST_REPORT_STANDARD_ERROR_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace host {

/// Owns standard error as long as it lives; one at a time. A thread of its own writes, so that a terminal
/// that was stopped never holds up a camera. At most 10,000 lines wait; further ones are lost, and counted.
/// May be used on any thread.
class standard_error {
 public:
  standard_error();
  /// Writes what waits. It does not wait for a reader that takes nothing for 0.2 s.
  ~standard_error();
  standard_error(const standard_error&) = delete;
  standard_error& operator=(const standard_error&) = delete;

  /// Whether status lines can be drawn, and colours shown.
  bool is_terminal() const { return isTerminal_; }
  /// Whether systemd reads it for the journal, see systemd.exec(5).
  bool is_journal() const { return isJournal_; }

  /// Replaces the lines below all others; on a terminal only.
  void set_status(std::vector<std::string> lines);
  /// Writes a line as it is.
  void print(std::string line);
  /// Counts a line that could not be made, for want of memory, as lost.
  void count_lost();

 private:
  void work();
  std::string take_text();
  std::string text_of(const std::deque<std::string>& lines, const std::vector<std::string>& status);
  void write_all(std::string_view text);
  bool is_ending();

  bool isTerminal_;
  bool isJournal_;
  std::size_t drawn_ = 0;  // status lines that stand on the terminal; the writer's

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::string> waiting_;
  std::uint64_t lost_ = 0;
  std::vector<std::string> status_;
  bool isStatusNew_ = false;
  bool isEnding_ = false;
  std::thread writer_;
};

}  // namespace host

#endif
