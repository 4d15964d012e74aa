// Where log lines of the bundle, the camera library and the host go.
#ifndef HOST_REPORT_LOG_ROUTER_H
#define HOST_REPORT_LOG_ROUTER_H

#include <string>

#include "host/report/log_tail.h"
#include "host/report/standard_error.h"
#include "platform/log2/log_sink.h"

namespace host {

/// Receives the lines of the log library as long as it lives; one at a time. Each line goes to standard error
/// up to a level, to the tail of the log, and, where it is a failure, to those of its thread (see
/// take_failures). Where standard error goes to the journal, a line starts with its priority: "<3>".
///
/// "2026-11-22T21:58:03.123456Z error [SIM00001] src/gev_camera.cpp:66 connect: fail: not_found_error"
class log_router {
 public:
  /// Standard error gets no lines above `level` (1 to 5). `error` must outlive the router.
  log_router(int level, standard_error& error);
  ~log_router();
  log_router(const log_router&) = delete;
  log_router& operator=(const log_router&) = delete;

  /// The last lines, whatever standard error gets.
  const log_tail& tail() const { return tail_; }

 private:
  static void receive(void* context, const log_line* line);
  void route(const log_line& line);

  log_tail tail_;
  const int level_;
  const bool isColoured_;
  standard_error& error_;
};

}  // namespace host

#endif
