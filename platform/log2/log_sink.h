// What a program that owns the log library can do with it, beside LogWrite itself.
#ifndef PLATFORM_LOG2_LOG_SINK_H
#define PLATFORM_LOG2_LOG_SINK_H

extern "C" {

// One log line on its way out. All texts are valid during the call only.
struct log_line {
  const char* file;
  int line;
  const char* function;
  int level;
  const char* text;  // formatted, without a newline
};

// Receives every line on the thread that logs; calls may come from several threads at once.
typedef void (*log_sink)(void* context, const log_line* line);

// Sends all lines to `sink` from now on; null goes back to standard error, where a line reads
// "2026-11-22T21:58:03.123456Z 3 src/gev_device.cpp:120 run2: done: kPENDING_SIGNAL__SIGTERM" and lines above
// the level of the environment variable LOG2_LEVEL (1 to 5, 5 when unset) are left out. Not to be called
// while another thread logs.
__attribute__((visibility("default"))) void LogSetSink(log_sink sink, void* context);
}

#endif
