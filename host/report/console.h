// The terminal: log lines of the bundle and of the host in one format, and the status block below them.
#ifndef HOST_REPORT_CONSOLE_H
#define HOST_REPORT_CONSOLE_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/report/log_tail.h"
#include "platform/log2/log_sink.h"

namespace host {

/// Owns the log library and standard error as long as it lives; one at a time. Lines are formatted by
/// whoever logs and written by a thread of its own, so that a terminal that has been stopped never holds up
/// a camera; lines beyond 10,000 that wait, or for which there is no memory, are lost, and counted. Where
/// standard error goes to the journal, a line starts with its priority: "<3>".
///
/// "2026-11-22T21:58:03.123456Z error [SIM00001] src/gev_camera.cpp:66 connect: fail: not_found_error"
class console {
 public:
  /// Lines above `level` (1 to 5) are left out.
  explicit console(int level);
  /// Writes what waits; a reader that takes nothing for 0.2 s is not waited for any longer.
  ~console();
  console(const console&) = delete;
  console& operator=(const console&) = delete;

  /// Whether standard error is a terminal that a status block can be drawn on.
  bool is_terminal() const { return isTerminal_; }

  /// Replaces the block below the log; on a terminal only.
  void set_status(std::vector<std::string> lines);
  /// The last lines, at whatever level the console shows.
  const log_tail& tail() const { return tail_; }
  /// Writes a line as it is.
  void print(std::string line);

 private:
  static void receive(void* context, const log_line* line);
  void work();
  std::string take_block();
  std::string block_of(const std::deque<std::string>& lines, const std::vector<std::string>& status);
  void write_all(std::string_view text);
  bool is_ending();

  log_tail tail_;
  int level_;
  bool isTerminal_;
  bool isColoured_;
  bool isJournal_;
  std::size_t drawn_ = 0;  // lines of the status block that stand on the terminal; the writer's

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::string> waiting_;
  std::uint64_t lost_ = 0;
  std::vector<std::string> status_;
  bool statusChanged_ = false;
  bool ending_ = false;
  std::thread writer_;
};

}  // namespace host

#endif
