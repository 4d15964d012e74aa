// The figures of all cameras over HTTP, for Prometheus.
#ifndef HOST_WEB_METRICS_SERVER_H
#define HOST_WEB_METRICS_SERVER_H

#include <functional>
#include <memory>
#include <string>

namespace host {

/// Where the metrics are served.
struct endpoint {
  std::string address;
  int port = 0;  ///< 0: any that is free
};

/// Serves GET /metrics from construction to destruction, on threads of its own.
class metrics_server {
 public:
  /// `text` makes the answer and is called on the server's threads. std::runtime_error when the address can't
  /// be listened on.
  metrics_server(const endpoint& where, std::function<std::string()> text);
  ~metrics_server();
  metrics_server(const metrics_server&) = delete;
  metrics_server& operator=(const metrics_server&) = delete;

 private:
  struct listener;
  std::unique_ptr<listener> listener_;
};

}  // namespace host

#endif
