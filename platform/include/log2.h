// The host's log library, as everything that logs uses it: one function.
#ifndef LOG2_H
#define LOG2_H

#ifdef __cplusplus
extern "C" {
#endif

// Writes one log line. May be called from any thread; never fails towards its caller.
//   file, line, function  place of the call: source path, line number, bare function name
//   level                 1 failure, 2 tolerated failure, 3 change of state, 4 completion or value, 5 entry
//   format                printf-style, without a trailing newline
__attribute__((format(printf, 5, 6), visibility("default"))) void LogWrite(const char* file, int line,
                                                                           const char* function, int level,
                                                                           const char* format, ...);

#ifdef __cplusplus
}
#endif

#endif
