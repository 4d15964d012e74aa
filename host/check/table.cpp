#include "host/check/table.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

#include "host/acquire/steady_time.h"
#include "host/config/text.h"

namespace host {
namespace {

// In the order of the table. Each sweep has a row of its own, in the place of `kSweeps`.
constexpr std::array kChecks = {"library starts",     "camera found",   "device created",
                                "frames arrive",      "frame interval", "timestamps increase",
                                "exposure read back", "gain read back", kSweeps,
                                "IR off and on",      "temperature",    "ends on a signal"};
constexpr std::array kWords = {"passed", "FAILED", "skipped"};
constexpr std::uint64_t kRedrawUs = 500'000;
constexpr std::uint64_t kLineUs = 10'000'000;

}  // namespace

void check_table::write(const std::string& name, verdict outcome, const std::string& figure) {
  names_.insert(name);
  ++counts_.at(static_cast<std::size_t>(outcome));
  fmt::print("  {:<8} {:<21} {}\n", kWords.at(static_cast<std::size_t>(outcome)), name, printable(figure));
  std::fflush(stdout);
}

bool check_table::add(const std::string& name, bool isPassed, const std::string& figure,
                      const std::vector<std::string>& advice) {
  write(name, isPassed ? verdict::passed : verdict::failed, figure);
  if (!isPassed) {
    for (const std::string& line : advice) {
      fmt::print("  {:<8} {:<21} -> {}\n", "", "", printable(line));
    }
  }
  return isPassed;
}

void check_table::skip(const std::string& name, const std::string& why) {
  write(name, verdict::skipped, why);
}

void check_table::skip_rest(const std::string& why) {
  const auto isThere = [this](const std::string& beginning) {
    const auto first = names_.lower_bound(beginning);
    return first != names_.end() && first->starts_with(beginning);
  };
  for (const std::string name : kChecks) {
    if (!isThere(name == kSweeps ? "sweep" : name)) {
      skip(name, why);
    }
  }
}

progress_line::progress_line()
    : isTerminal_(isatty(STDERR_FILENO) == 1), nextUs_(steady_us() + (isTerminal_ ? 0 : kLineUs)) {}

void progress_line::show(const std::string& text) {
  const std::uint64_t nowUs = steady_us();
  if (nowUs < nextUs_) {
    return;
  }
  nextUs_ = nowUs + (isTerminal_ ? kRedrawUs : kLineUs);
  fmt::print(stderr, "{}{}{}", isTerminal_ ? "\r\x1b[K" : "", text, isTerminal_ ? "" : "\n");
  isDrawn_ = isTerminal_;
}

void progress_line::clear() {
  if (isDrawn_) {
    fmt::print(stderr, "\r\x1b[K");
    isDrawn_ = false;
  }
}

}  // namespace host
