#include "host/report/console.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <new>
#include <utility>

#include "host/acquire/thread_log.h"
#include "host/config/text.h"

namespace host {
namespace {

constexpr std::size_t kLinesMax = 10'000;
constexpr int kWarning = 2;
constexpr std::array kLevelNames = {"error", "warning", "state", "done", "exec"};
constexpr std::array kPriorities = {"<3>", "<4>", "<6>", "<7>", "<7>"};  // of the journal, by level
constexpr int kPatienceMs = 200;

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

// Whether systemd reads standard error for its journal, see systemd.exec(5).
bool is_journal() {
  const char* const stream = std::getenv("JOURNAL_STREAM");
  struct stat about {};
  return stream != nullptr && fstat(STDERR_FILENO, &about) == 0 &&
         fmt::format("{}:{}", about.st_dev, about.st_ino) == stream;
}

}  // namespace

console::console(int level)
    : level_(level),
      isTerminal_(isatty(STDERR_FILENO) == 1),
      isColoured_(isTerminal_ && std::getenv("NO_COLOR") == nullptr),
      isJournal_(is_journal()),
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
  if (shown.level <= log_tail::kLevelMax) {
    self.tail_.add(shown.level, logged_camera(),
                   printable(fmt::format("{}: {}", line->function, line->text)));
  }
  if (shown.level > self.level_) {
    return;
  }
  std::string text = printable(format_line(shown));
  if (shown.level <= 1 && self.isColoured_) {
    text = "\x1b[31m" + text + "\x1b[0m";
  }
  if (self.isJournal_) {
    text = kPriorities[static_cast<std::size_t>(std::clamp(shown.level, 1, 5) - 1)] + text;
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
  for (bool isLast = false; !isLast;) {
    wake_.wait(lock, [this] { return ending_ || statusChanged_ || !waiting_.empty(); });
    isLast = ending_;
    const std::string block = take_block();
    lock.unlock();
    write_all(block);
    lock.lock();
  }
}

// What is to be written now; nothing without memory, and then the lines are lost.
std::string console::take_block() {
  std::string block;
  try {
    block = block_of(waiting_, status_);
    lost_ = 0;
  } catch (const std::bad_alloc&) {
    lost_ += waiting_.size();
  }
  waiting_.clear();
  statusChanged_ = false;
  return block;
}

// Takes the block away, writes the lines, and draws the block again below them.
std::string console::block_of(const std::deque<std::string>& lines, const std::vector<std::string>& status) {
  std::string text = drawn_ > 0 ? fmt::format("\x1b[{}A\r\x1b[J", drawn_) : "";
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  if (lost_ > 0) {
    text += fmt::format("({} lines were lost here: standard error is not read fast enough)\n", lost_);
  }
  const std::size_t columns = isTerminal_ ? terminal_columns() : 0;
  for (const std::string& line : status) {
    text += line.substr(0, columns) + "\n";
  }
  drawn_ = status.size();
  return text;
}

// A pipe that poll finds writable takes PIPE_BUF bytes without blocking.
void console::write_all(std::string_view text) {
  while (!text.empty()) {
    pollfd waits{STDERR_FILENO, POLLOUT, 0};
    if (poll(&waits, 1, kPatienceMs) == 0) {
      if (is_ending()) {
        return;
      }
      continue;
    }
    const ssize_t written = write(STDERR_FILENO, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (written < 0 && (errno == EINTR || errno == EAGAIN)) {
      continue;
    }
    if (written <= 0) {
      return;  // nobody reads standard error any more
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

bool console::is_ending() {
  const std::lock_guard lock(mutex_);
  return ending_;
}

}  // namespace host
