// The last log lines.
#ifndef HOST_REPORT_LOG_TAIL_H
#define HOST_REPORT_LOG_TAIL_H

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace host {

struct tail_line {
  std::uint64_t number = 0;  ///< from 1 on
  std::uint64_t timeUs = 0;  ///< realtime clock
  int level = 0;             ///< 1 (error) to 5
  std::string camera;        ///< serial number; empty: the program
  std::string text;
};

/// Keeps the last `kLines`, those of level 1 to 3. On any thread.
class log_tail {
 public:
  static constexpr std::size_t kLines = 500;
  static constexpr std::size_t kTextMax = 500;  ///< bytes of one line
  static constexpr int kLevelMax = 3;

  void add(int level, const std::string& camera, std::string text);

  /// The lines after number `after`, up to `level`, of `camera` (empty: of all), oldest first.
  std::vector<tail_line> since(std::uint64_t after, int level = kLevelMax,
                               const std::string& camera = "") const;

 private:
  mutable std::mutex mutex_;
  std::deque<tail_line> lines_;
  std::uint64_t last_ = 0;
};

}  // namespace host

#endif
