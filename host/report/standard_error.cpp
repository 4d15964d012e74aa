#include "host/report/standard_error.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <new>
#include <utility>

#include "host/config/descriptor.h"

namespace host {
namespace {

constexpr std::size_t kLinesMax = 10'000;
constexpr int kPatienceMs = 200;

std::size_t terminal_columns() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

bool is_read_by_journal() {
  const char* const stream = std::getenv("JOURNAL_STREAM");
  struct stat about {};
  return stream != nullptr && fstat(STDERR_FILENO, &about) == 0 &&
         fmt::format("{}:{}", about.st_dev, about.st_ino) == stream;
}

}  // namespace

standard_error::standard_error()
    : isTerminal_(isatty(STDERR_FILENO) == 1),
      isJournal_(is_read_by_journal()),
      writer_([this] { work(); }) {}

standard_error::~standard_error() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  wake_.notify_one();
  writer_.join();
}

void standard_error::print(std::string line) {
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

void standard_error::count_lost() {
  const std::lock_guard lock(mutex_);
  ++lost_;
}

void standard_error::set_status(std::vector<std::string> lines) {
  if (!isTerminal_) {
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    status_ = std::move(lines);
    isStatusNew_ = true;
  }
  wake_.notify_one();
}

void standard_error::work() {
  std::unique_lock lock(mutex_);
  for (bool isLast = false; !isLast;) {
    wake_.wait(lock, [this] { return isEnding_ || isStatusNew_ || !waiting_.empty(); });
    isLast = isEnding_;
    const std::string text = take_text();
    lock.unlock();
    write_all(text);
    lock.lock();
  }
}

// What is to be written now; nothing without memory, and then the lines are lost.
std::string standard_error::take_text() {
  std::string text;
  try {
    text = text_of(waiting_, status_);
    lost_ = 0;
  } catch (const std::bad_alloc&) {
    lost_ += waiting_.size();
  }
  waiting_.clear();
  isStatusNew_ = false;
  return text;
}

// Takes the status away, writes the lines, and draws the status again below them.
std::string standard_error::text_of(const std::deque<std::string>& lines,
                                    const std::vector<std::string>& status) {
  std::string text = drawn_ > 0 ? fmt::format("\x1b[{}A\r\x1b[J", drawn_) : "";
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  if (lost_ > 0) {
    text += fmt::format(
        "(lines lost here: {}; standard error is not read fast enough, or there was no memory)\n", lost_);
  }
  const std::size_t columns = isTerminal_ ? terminal_columns() : 0;
  for (const std::string& line : status) {
    text += line.substr(0, columns) + "\n";
  }
  drawn_ = status.size();
  return text;
}

void standard_error::write_all(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write_some(STDERR_FILENO, text, kPatienceMs);
    const bool isUnread = written < 0 || (written == 0 && is_ending());
    if (isUnread) {
      return;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

bool standard_error::is_ending() {
  const std::lock_guard lock(mutex_);
  return isEnding_;
}

}  // namespace host
