#include "host/web/metrics_server.h"

#include <fmt/format.h>
#include <httplib.h>

#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

#include "core/log.h"

namespace host {
namespace {

constexpr std::size_t kThreads = 2;
constexpr std::chrono::milliseconds kClientTimeout{500};  // also how long a silent client delays the end

}  // namespace

struct metrics_server::listener {
  httplib::Server server;
  std::thread thread;
};

metrics_server::metrics_server(const endpoint& where, std::function<std::string()> text)
    : listener_(std::make_unique<listener>()) {
  httplib::Server& server = listener_->server;
  server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  server.set_keep_alive_max_count(1);
  server.set_read_timeout(kClientTimeout);
  server.set_write_timeout(kClientTimeout);
  // Without it a second program could listen on the same port.
  server.set_socket_options([](socket_t socket) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server.Get("/metrics", [text = std::move(text)](const httplib::Request&, httplib::Response& answer) {
    answer.set_content(text(), "text/plain; version=0.0.4");
  });
  int port = where.port;
  if (port == 0) {
    port = server.bind_to_any_port(where.address);
  } else if (!server.bind_to_port(where.address, port)) {
    port = -1;
  }
  if (port < 0) {
    throw std::runtime_error(
        fmt::format("metrics can't be served at {} port {}: the address is not of this "
                    "machine, or another program has the port",
                    where.address, where.port));
  }
  LOG(3, "metrics are served at http://%s:%d/metrics", where.address.c_str(), port);
  listener_->thread = std::thread([this] { listener_->server.listen_after_bind(); });
  while (!server.is_running()) {  // a stop before that would be lost
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

metrics_server::~metrics_server() {
  listener_->server.stop();
  listener_->thread.join();
}

}  // namespace host
