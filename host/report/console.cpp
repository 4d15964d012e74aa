#include "host/report/console.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "host/acquire/thread_log.h"
#include "host/config/text.h"

namespace host {
namespace {

constexpr std::size_t kLinesMax = 10'000;
constexpr int kWarning = 2;
constexpr std::array kLevelNames = {"error", "warning", "state", "done", "exec"};

std::string utc_stamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", fmt::gmtime(now.tv_sec), now.tv_nsec / 1000);
}

std::string format_line(const log_line& line) {
  const auto level = static_cast<std::size_t>(std::clamp(line.level, 1, 5) - 1);
  const std::string camera = logged_camera().empty() ? "" : fmt::format("[{}] ", logged_camera());
  return fmt::format("{} {:<7} {}{}:{} {}: {}", utc_stamp(), kLevelNames[level], camera, line.file, line.line,
                     line.function, line.text);
}

std::size_t terminal_columns() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void write_all(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    if (written <= 0) {
      return;  // nobody reads standard error any more
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

console::console(int level)
    : level_(level),
      isTerminal_(isatty(STDERR_FILENO) == 1),
      isColoured_(isTerminal_ && std::getenv("NO_COLOR") == nullptr),
      writer_([this] { work(); }) {
  LogSetSink(receive, this);
}

console::~console() {
  LogSetSink(nullptr, nullptr);
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wake_.notify_one();
  writer_.join();
}

void console::receive(void* context, const log_line* line) {
  auto& self = *static_cast<console*>(context);
  log_line shown = *line;
  shown.level = shown_level(line->level);
  if (shown.level <= kWarning) {
    remember_failure(fmt::format("{}: {}", line->function, line->text));
  }
  if (shown.level > self.level_) {
    return;
  }
  std::string text = printable(format_line(shown));
  if (shown.level <= 1 && self.isColoured_) {
    text = "\x1b[31m" + text + "\x1b[0m";
  }
  self.print(std::move(text));
}

void console::print(std::string line) {
  {
    const std::lock_guard lock(mutex_);
    if (waiting_.size() >= kLinesMax) {
      ++lost_;
      return;
    }
    waiting_.push_back(std::move(line));
  }
  wake_.notify_one();
}

void console::set_status(std::vector<std::string> lines) {
  if (!isTerminal_) {
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    status_ = std::move(lines);
    statusChanged_ = true;
  }
  wake_.notify_one();
}

void console::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    wake_.wait(lock, [this] { return ending_ || statusChanged_ || !waiting_.empty(); });
    std::deque<std::string> lines;
    lines.swap(waiting_);
    if (const std::uint64_t lost = std::exchange(lost_, 0); lost > 0) {
      lines.push_back(fmt::format("({} lines were lost here: standard error is not read fast enough)", lost));
    }
    const std::vector<std::string> status = status_;
    statusChanged_ = false;
    const bool last = ending_;
    lock.unlock();
    write_out(lines, status);
    if (last) {
      return;
    }
    lock.lock();
  }
}

// Takes the block away, writes the lines, and draws the block again below them.
void console::write_out(const std::deque<std::string>& lines, const std::vector<std::string>& status) {
  std::string text = drawn_ > 0 ? fmt::format("\x1b[{}A\r\x1b[J", drawn_) : "";
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  const std::size_t columns = isTerminal_ ? terminal_columns() : 0;
  for (const std::string& line : status) {
    text += line.substr(0, columns) + "\n";
  }
  drawn_ = status.size();
  write_all(text);
}

int log_level_of(const std::string& text) {
  for (std::size_t at = 0; at < kLevelNames.size(); ++at) {
    if (text == kLevelNames[at] || text == std::to_string(at + 1)) {
      return static_cast<int>(at) + 1;
    }
  }
  return 0;
}

}  // namespace host
