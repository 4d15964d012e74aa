#include <log2.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "platform/log2/log_sink.h"

namespace {

int level_limit() {
  const char* text = std::getenv("LOG2_LEVEL");
  return text != nullptr && *text >= '1' && *text <= '5' ? *text - '0' : 5;
}

void write_to_stderr(void*, const log_line* line) {
  static const int limit = level_limit();
  if (line->level > limit) {
    return;
  }
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm utc{};
  gmtime_r(&now.tv_sec, &utc);
  std::array<char, 32> stamp{};
  std::strftime(stamp.data(), stamp.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  std::fprintf(stderr, "%s.%06ldZ %d %s:%d %s: %s\n", stamp.data(), now.tv_nsec / 1000, line->level,
               line->file, line->line, line->function, line->text);
}

log_sink currentSink = write_to_stderr;
void* currentContext = nullptr;

}  // namespace

void LogSetSink(log_sink sink, void* context) {
  currentSink = sink != nullptr ? sink : write_to_stderr;
  currentContext = context;
}

void LogWrite(const char* file, int line, const char* function, int level, const char* format, ...) try {
  std::array<char, 1024> brief{};  // most lines fit, also when there is no memory left
  std::string whole;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(brief.data(), brief.size(), format, arguments);
  va_end(arguments);
  if (length >= static_cast<int>(brief.size())) {
    whole.resize(static_cast<std::size_t>(length));
    va_start(arguments, format);
    std::vsnprintf(whole.data(), whole.size() + 1, format, arguments);
    va_end(arguments);
  }
  const log_line entry{file, line, function, level, whole.empty() ? brief.data() : whole.c_str()};
  currentSink(currentContext, &entry);
} catch (...) {
  // A line that cannot be written is lost; logging never fails towards its caller.
}
