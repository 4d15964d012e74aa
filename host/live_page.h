// The live page of a run: what it shows of the session's cameras, and the server that it is on.
#ifndef HOST_LIVE_PAGE_H
#define HOST_LIVE_PAGE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/acquire/camera_runner.h"
#include "host/report/camera_snapshot.h"
#include "host/report/log_tail.h"
#include "host/web/live/live_api.h"
#include "host/web/live/live_run.h"
#include "host/web/live/preview.h"
#include "host/web/live/viewers.h"
#include "host/web/web_server.h"

namespace host {

/// What the command line says of the page.
struct live_options {
  endpoint where;
  std::string tokenFile;           ///< empty: a token is made up
  std::string certificate;         ///< path of a PEM file; empty: no TLS
  std::string key;                 ///< the same
  std::vector<std::string> hosts;  ///< names that the server answers to, besides those it knows
  bool isReadOnly = false;
};

/// A camera of the session, valid for the length of a visit.
struct live_source {
  camera_slot& slot;
  const std::shared_ptr<preview_source>& preview;
  const frame_writer* files;  ///< null without --record
  const frame_writer* video;  ///< null without --y4m
};

/// What the page needs of the session; must outlive it. All may be called on any thread.
struct live_session {
  /// Calls `visit` with every camera, in the order of the configuration, while none can be added or taken
  /// away.
  std::function<void(const std::function<void(const live_source&)>& visit)> visitCameras;
  std::function<std::string()> metrics;
  const log_tail& log;
  std::string configName;
};

/// Serves from construction to destruction.
class live_page final : private live_run {
 public:
  /// std::runtime_error when the address can't be listened on, or a file of the options can't be used.
  live_page(const live_options& chosen, live_session session);
  live_page(const live_page&) = delete;
  live_page& operator=(const live_page&) = delete;

  /// "http://127.0.0.1:8080/#token=..."; without the token when that is in a file, where it is to stay.
  std::string link() const;
  /// False once the server had to end, which it has logged.
  bool is_serving() const { return server_.is_serving(); }

 private:
  std::vector<live_camera> cameras() override;
  std::shared_ptr<preview_source> preview(const std::string& serial) override;
  queue_answer apply(const std::string& serial, const light_settings& settings,
                     const std::string& author) override;
  queue_answer command(const std::string& serial, settings_command what, const std::string& author) override;
  std::string metrics() override { return session_.metrics(); }
  const log_tail& log() override { return session_.log; }
  std::string config_name() override { return session_.configName; }

  queue_answer with_slot(const std::string& serial, const std::function<queue_answer(camera_slot&)>& ask);

  const live_options chosen_;
  const live_session session_;
  const std::string token_;
  live_viewers viewers_;
  live_api api_;
  web_server server_;  // ends first: it uses all the others
};

}  // namespace host

#endif
