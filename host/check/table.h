// Named checks and their verdicts, a row each.
#ifndef HOST_CHECK_TABLE_H
#define HOST_CHECK_TABLE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace host {

enum class verdict : std::uint8_t { passed, failed, skipped };

/// The row of a single sweep. Those of several are named "sweep 1 takes effect" and so on.
inline constexpr const char* kSweeps = "sweeps take effect";

/// Writes each row to standard output as soon as it is known, and counts verdicts.
class check_table {
 public:
  /// Gives `isPassed`. `advice` says what to do about a failure, a line each.
  bool add(const std::string& name, bool isPassed, const std::string& figure,
           const std::vector<std::string>& advice = {});
  /// A check that can't be made, and why.
  void skip(const std::string& name, const std::string& why);
  /// Every check that has no row yet.
  void skip_rest(const std::string& why);

  std::size_t count(verdict which) const { return counts_.at(static_cast<std::size_t>(which)); }

 private:
  void write(const std::string& name, verdict outcome, const std::string& figure);

  std::set<std::string> names_;
  std::array<std::size_t, 3> counts_{};
};

/// The progress of long work, on standard error: one line that is drawn again on a terminal, elsewhere a line
/// every ten seconds.
class progress_line {
 public:
  progress_line();
  ~progress_line() { clear(); }
  progress_line(const progress_line&) = delete;
  progress_line& operator=(const progress_line&) = delete;

  void show(const std::string& text);
  /// Removes the line, before anything else is written.
  void clear();

 private:
  bool isTerminal_;
  bool isDrawn_ = false;
  std::uint64_t nextUs_;
};

}  // namespace host

#endif
