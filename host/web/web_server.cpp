#include "host/web/web_server.h"

#include <microhttpd.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "core/log.h"
#include "host/config/descriptor.h"
#include "host/web/listener.h"

namespace host {
namespace {

using clock = std::chrono::steady_clock;

constexpr std::size_t kHeadBytes = 16 << 10;  // of request line and headers; beyond it, the status is 431
constexpr std::chrono::milliseconds kOverdueCheck{100};
constexpr rlim_t kPartOfDescriptors = 4;

unsigned connections_within_limit(unsigned wanted) {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  return static_cast<unsigned>(std::clamp<rlim_t>(files.rlim_cur / kPartOfDescriptors, 1, wanted));
}

// A request that has not been answered yet.
struct incoming {
  std::string body;
};

MHD_Result send(MHD_Connection* connection, const web_response& answer, const std::string& allowed = "") {
  MHD_Response* const response = MHD_create_response_from_buffer(
      answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) {
    return MHD_NO;
  }
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
  MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  if (!allowed.empty()) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, allowed.c_str());
  }
  const MHD_Result queued = MHD_queue_response(connection, answer.status, response);
  MHD_destroy_response(response);
  return queued;
}

web_response answer_of(const web_route& route, const std::string& body) try {
  return route.answer(body);
} catch (const std::exception& error) {
  LOG(1, "fail: web request %s: %s", route.path.c_str(), error.what());
  return {.body = "failed\n", .status = MHD_HTTP_INTERNAL_SERVER_ERROR};
}

void log_line_of_library(void*, const char* format, va_list arguments) {
  std::array<char, 256> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  const std::string_view line(text.data());
  LOG(5, "web: %.*s", static_cast<int>(line.find_last_not_of('\n') + 1), line.data());
}

}  // namespace

// The thread and the library's daemon that it runs. All callbacks come on that thread.
class web_server::loop {
 public:
  loop(const endpoint& where, std::vector<web_route> routes, const web_limits& limits)
      : routes_(std::move(routes)),
        limits_(limits),
        connections_(connections_within_limit(limits.connections)),
        wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    descriptor listener = listen_at(where);
    port_ = port_of(listener);
    start(std::move(listener));
    thread_ = std::jthread([this](const std::stop_token& stop) { work(stop); });
  }
  ~loop() {
    thread_.request_stop();
    eventfd_write(wake_.get(), 1);
    thread_.join();
    MHD_stop_daemon(daemon_);
  }
  loop(const loop&) = delete;
  loop& operator=(const loop&) = delete;

  int port() const { return port_; }
  bool is_serving() const { return isServing_; }

 private:
  struct client {
    int socket = -1;  // -1: the place is free
    clock::time_point deadline;
  };

  void start(descriptor listener);
  void work(const std::stop_token& stop);
  int wait_ms() const;
  void end_overdue();
  void take_place(MHD_Connection* connection, void** place);
  bool is_too_large(MHD_Connection* connection) const;
  MHD_Result answer(MHD_Connection* connection, std::string_view path, std::string_view method,
                    const std::string& body) const;

  // The library's callbacks.
  static void connection_changed(void* self, MHD_Connection* connection, void** place,
                                 MHD_ConnectionNotificationCode what);
  static MHD_Result receive(void* self, MHD_Connection* connection, const char* path, const char* method,
                            const char* version, const char* part, std::size_t* partSize, void** request);
  static void completed(void* self, MHD_Connection* connection, void** request, MHD_RequestTerminationCode);

  const std::vector<web_route> routes_;
  const web_limits limits_;
  std::vector<client> connections_;
  descriptor wake_;
  int port_ = 0;
  MHD_Daemon* daemon_ = nullptr;
  std::atomic<bool> isServing_{true};
  std::jthread thread_;
};

void web_server::loop::start(descriptor listener) {
  const auto idleSeconds = std::chrono::ceil<std::chrono::seconds>(limits_.idle).count();
  const MHD_OptionItem settings[] = {
      {MHD_OPTION_LISTEN_SOCKET, listener.get(), nullptr},
      {MHD_OPTION_CONNECTION_LIMIT, static_cast<std::intptr_t>(connections_.size()), nullptr},
      {MHD_OPTION_PER_IP_CONNECTION_LIMIT, limits_.connectionsOfClient, nullptr},
      {MHD_OPTION_CONNECTION_MEMORY_LIMIT, kHeadBytes, nullptr},
      {MHD_OPTION_CONNECTION_TIMEOUT, idleSeconds, nullptr},
      {MHD_OPTION_END, 0, nullptr}};
  daemon_ = MHD_start_daemon(MHD_USE_EPOLL | MHD_USE_ERROR_LOG, 0, nullptr, nullptr, &loop::receive, this,
                             MHD_OPTION_EXTERNAL_LOGGER, &log_line_of_library, nullptr,
                             MHD_OPTION_NOTIFY_CONNECTION, &loop::connection_changed, this,
                             MHD_OPTION_NOTIFY_COMPLETED, &loop::completed, this, MHD_OPTION_ARRAY, settings,
                             MHD_OPTION_END);
  if (daemon_ == nullptr) {
    throw std::runtime_error("the web server does not start");
  }
  listener.release();  // the daemon's now
}

// Ends by itself only where the library can't go on.
void web_server::loop::work(const std::stop_token& stop) {
  const MHD_DaemonInfo* const info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
  std::array<pollfd, 2> waits = {pollfd{info->epoll_fd, POLLIN, 0}, pollfd{wake_.get(), POLLIN, 0}};
  while (!stop.stop_requested()) {
    poll(waits.data(), waits.size(), wait_ms());
    if (MHD_run(daemon_) != MHD_YES) {
      LOG(1, "fail: the web server on port %d ended: %s", port_, std::strerror(errno));
      isServing_ = false;
      return;
    }
    end_overdue();
  }
}

int web_server::loop::wait_ms() const {
  constexpr auto kLongest = static_cast<MHD_UNSIGNED_LONG_LONG>(kOverdueCheck.count());
  MHD_UNSIGNED_LONG_LONG ms = 0;
  return static_cast<int>(MHD_get_timeout(daemon_, &ms) == MHD_YES ? std::min(ms, kLongest) : kLongest);
}

// The daemon learns of it from the socket, and takes the connection away.
void web_server::loop::end_overdue() {
  const auto now = clock::now();
  for (const client& each : connections_) {
    if (each.socket >= 0 && now >= each.deadline) {
      shutdown(each.socket, SHUT_RDWR);
    }
  }
}

void web_server::loop::connection_changed(void* self, MHD_Connection* connection, void** place,
                                          MHD_ConnectionNotificationCode what) {
  if (what == MHD_CONNECTION_NOTIFY_STARTED) {
    static_cast<loop*>(self)->take_place(connection, place);
  } else if (*place != nullptr) {
    static_cast<client*>(*place)->socket = -1;
  }
}

void web_server::loop::take_place(MHD_Connection* connection, void** place) {
  const auto free = std::find_if(connections_.begin(), connections_.end(),
                                 [](const client& each) { return each.socket < 0; });
  if (free != connections_.end()) {
    free->socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    free->deadline = clock::now() + limits_.whole;
    *place = &*free;
  }
}

// Called with the head of a request, with each part of its body, and at its end.
MHD_Result web_server::loop::receive(void* self, MHD_Connection* connection, const char* path,
                                     const char* method, const char*, const char* part, std::size_t* partSize,
                                     void** request) try {
  const auto& own = *static_cast<loop*>(self);
  if (*request == nullptr) {
    *request = new incoming;
    return own.is_too_large(connection)
               ? send(connection, {.body = "too large\n", .status = MHD_HTTP_CONTENT_TOO_LARGE})
               : MHD_YES;
  }
  auto& now = *static_cast<incoming*>(*request);
  if (*partSize == 0) {
    return own.answer(connection, path, method, now.body);
  }
  if (now.body.size() + *partSize > own.limits_.bodyBytes) {
    return MHD_NO;
  }
  now.body.append(part, std::exchange(*partSize, 0));
  return MHD_YES;
} catch (const std::exception& error) {
  LOG(1, "fail: a web request is dropped: %s", error.what());
  return MHD_NO;
}

void web_server::loop::completed(void* self, MHD_Connection* connection, void** request,
                                 MHD_RequestTerminationCode) {
  delete static_cast<incoming*>(std::exchange(*request, nullptr));
  const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  if (auto* const own = static_cast<client*>(info->socket_context); own != nullptr) {
    own->deadline = clock::now() + static_cast<loop*>(self)->limits_.whole;
  }
}

bool web_server::loop::is_too_large(MHD_Connection* connection) const {
  const char* const text =
      MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
  const std::string_view length = text == nullptr ? "0" : text;
  std::size_t bytes = 0;
  return std::from_chars(length.data(), length.data() + length.size(), bytes).ec != std::errc() ||
         bytes > limits_.bodyBytes;
}

MHD_Result web_server::loop::answer(MHD_Connection* connection, std::string_view path,
                                    std::string_view method, const std::string& body) const {
  std::string allowed;
  for (const web_route& route : routes_) {
    if (route.path != path) {
      continue;
    }
    if (route.method == (method == "HEAD" ? "GET" : method)) {
      return send(connection, answer_of(route, body));
    }
    allowed += (allowed.empty() ? "" : ", ") + route.method;
  }
  return allowed.empty()
             ? send(connection, {.body = "nothing here\n", .status = MHD_HTTP_NOT_FOUND})
             : send(connection, {.body = "not that way\n", .status = MHD_HTTP_METHOD_NOT_ALLOWED}, allowed);
}

web_server::web_server(const endpoint& where, std::vector<web_route> routes, const web_limits& limits)
    : loop_(std::make_unique<loop>(where, std::move(routes), limits)) {}

web_server::~web_server() = default;

int web_server::port() const {
  return loop_->port();
}

bool web_server::is_serving() const {
  return loop_->is_serving();
}

}  // namespace host
