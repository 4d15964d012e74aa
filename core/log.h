// The one way a diagnostic leaves the bundle: LOG(level, format, ...) writes a line through the host's log
// library, from the place where it stands.
//
// Levels:
//   1  a failure that ends the operation or is raised to the caller
//   2  a failure that is tolerated: a fallback is taken, a value is skipped
//   3  a change of camera state: a feature written, a host signal taken
//   4  completion, a value read, a statistic; entry into some operations
//   5  entry into a top-level operation
//
// Messages: "exec", "done", "done: key:value, ...", "fail", "fail: operation (key:value, ...)",
// "fail: key:value, ...", "fail: ROW", "fail: exception <text>", "stat: key:value". The exception types carry
// no text, so whoever raises one writes what it knows in the line before.
#ifndef CORE_LOG_H
#define CORE_LOG_H

#include <log2.h>

#define LOG(level, ...) LogWrite(__FILE__, __LINE__, __func__, level, __VA_ARGS__)

namespace Zavik {

/// Where a shared helper was called from, so that its log line names the caller's place and function.
/// Taken as a last argument that defaults to `caller::here()`.
struct caller {
  const char* file;
  int line;
  const char* function;

  static constexpr caller here(const char* file = __builtin_FILE(), int line = __builtin_LINE(),
                               const char* function = __builtin_FUNCTION()) {
    return {file, line, function};
  }
};

}  // namespace Zavik

/// As LOG, from the place of a `caller`.
#define LOG_FROM(where, level, ...) LogWrite((where).file, (where).line, (where).function, level, __VA_ARGS__)

#endif
