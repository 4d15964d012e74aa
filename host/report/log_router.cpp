#include "host/report/log_router.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <new>
#include <utility>

#include "host/acquire/thread_log.h"
#include "host/config/text.h"

namespace host {
namespace {

constexpr int kError = 1;
constexpr int kWarning = 2;

struct level_texts {
  const char* name;
  const char* priority;  // of the journal
};
constexpr std::array kLevels = {level_texts{"error", "<3>"}, level_texts{"warning", "<4>"},
                                level_texts{"state", "<6>"}, level_texts{"done", "<7>"},
                                level_texts{"exec", "<7>"}};

const level_texts& texts_of(int level) {
  return kLevels.at(static_cast<std::size_t>(std::clamp(level, 1, 5) - 1));
}

std::string utc_stamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", fmt::gmtime(now.tv_sec), now.tv_nsec / 1000);
}

std::string format_line(const log_line& line) {
  const std::string camera = logged_camera().empty() ? "" : fmt::format("[{}] ", logged_camera());
  return fmt::format("{} {:<7} {}{}:{} {}: {}", utc_stamp(), texts_of(line.level).name, camera, line.file,
                     line.line, line.function, line.text);
}

}  // namespace

log_router::log_router(int level, standard_error& error)
    : level_(level), isColoured_(error.is_terminal() && std::getenv("NO_COLOR") == nullptr), error_(error) {
  LogSetSink(receive, this);
}

log_router::~log_router() {
  LogSetSink(nullptr, nullptr);
}

void log_router::receive(void* context, const log_line* line) {
  auto& self = *static_cast<log_router*>(context);
  try {
    self.route(*line);
  } catch (const std::bad_alloc&) {
    self.error_.count_lost();
  }
}

void log_router::route(const log_line& line) {
  log_line shown = line;
  shown.level = shown_level(line.level);
  if (shown.level <= log_tail::kLevelMax) {
    const std::string text = fmt::format("{}: {}", line.function, line.text);
    tail_.add(shown.level, logged_camera(), printable(text));
    if (shown.level <= kWarning) {
      remember_failure(text);
    }
  }
  if (shown.level > level_) {
    return;
  }
  std::string text = printable(format_line(shown));
  if (shown.level <= kError && isColoured_) {
    text = "\x1b[31m" + text + "\x1b[0m";
  }
  error_.print((error_.is_journal() ? texts_of(shown.level).priority : "") + text);
}

}  // namespace host
