// One HTTP server for all that the program serves: a table of paths, and limits on what a client may cost.
#ifndef HOST_WEB_WEB_SERVER_H
#define HOST_WEB_WEB_SERVER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/web/message.h"

namespace host {

/// Where the server listens.
struct endpoint {
  std::string address;  ///< of this machine; a name, IPv4 or IPv6
  int port = 0;         ///< 0: any that is free
};

/// Answers requests on the server's thread. Meanwhile all other clients wait. An exception is the status 500.
using web_handler = std::function<web_answer(const web_request& request)>;

/// The requests of one path.
struct web_route {
  std::string method;  ///< "GET" (which answers HEAD as well), "POST" and so on
  std::string path;    ///< all of it, without a query: "/metrics"
  web_handler answer;
};

/// A certificate (with its chain) and its key, as the contents of PEM files. Empty: no TLS.
struct web_tls {
  std::string certificate;
  std::string key;
};

/// What clients may cost. Those beyond the number of connections wait for one to end.
struct web_limits {
  unsigned connections = 32;
  unsigned connectionsOfClient = 8;      ///< of one address
  std::size_t bodyBytes = 64 << 10;      ///< more is the status 413, or the end of the connection
  std::chrono::milliseconds idle{5000};  ///< without a byte in either direction; whole seconds
  /// For a request with its answer, from the end of the one before. Streams go on as long as they are read.
  std::chrono::milliseconds whole{10'000};
};

/// Serves from construction to destruction on one thread of its own, which never waits for a client: a slow
/// one costs a connection. Connections take at most a quarter of the files that the process may open.
class web_server {
 public:
  /// std::runtime_error when the address can't be listened on.
  web_server(const endpoint& where, std::vector<web_route> routes, const web_limits& limits = {});
  /// The same; also when the certificate can't be used.
  web_server(const endpoint& where, web_handler handler, const web_limits& limits, const web_tls& tls = {});
  /// Closes all connections, whatever their clients do.
  ~web_server();
  web_server(const web_server&) = delete;
  web_server& operator=(const web_server&) = delete;

  int port() const;
  /// False once the serving thread had to end, which it has logged.
  bool is_serving() const;

 private:
  class loop;
  std::unique_ptr<loop> loop_;
};

}  // namespace host

#endif
