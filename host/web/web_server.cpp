#include "host/web/web_server.h"

#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
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
constexpr std::size_t kStreamBlock = 64 << 10;
constexpr int kStreamBuffer = 128 << 10;  // bytes of a stream that the system takes ahead of its reader

unsigned connections_within_limit(unsigned wanted) {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  return static_cast<unsigned>(std::clamp<rlim_t>(files.rlim_cur / kPartOfDescriptors, 1, wanted));
}

// A request that has not been answered yet.
struct incoming {
  std::string body;
};

using response_holder = std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)>;

MHD_Result send(MHD_Connection* connection, const response_holder& response, const web_answer& answer) {
  if (!response) {
    return MHD_NO;
  }
  MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
  MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  for (const auto& [name, value] : answer.headers) {
    MHD_add_response_header(response.get(), name.c_str(), value.c_str());
  }
  return MHD_queue_response(connection, static_cast<unsigned>(answer.status), response.get());
}

MHD_Result send_whole(MHD_Connection* connection, const web_answer& answer) {
  const response_holder response(
      MHD_create_response_from_buffer(answer.body.size(), const_cast<char*>(answer.body.data()),
                                      MHD_RESPMEM_MUST_COPY),
      MHD_destroy_response);
  return send(connection, response, answer);
}

web_answer text_answer(int status, const char* text) {
  web_answer answer;
  answer.status = status;
  answer.type = "text/plain; charset=utf-8";
  answer.body = text;
  return answer;
}

using web_values = std::map<std::string, std::string, std::less<>>;

// Puts a value into the map, by its name in lower case. The last value of a name counts.
MHD_Result take_value(void* to, MHD_ValueKind, const char* name, const char* value) {
  std::string key = name;
  std::transform(key.begin(), key.end(), key.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  (*static_cast<web_values*>(to))[key] = value == nullptr ? "" : value;
  return MHD_YES;
}

std::string peer_of(MHD_Connection* connection) {
  const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  const sockaddr* const address = info->client_addr;
  const socklen_t size = address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  std::array<char, NI_MAXHOST> text{};
  return getnameinfo(address, size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0 ? text.data()
                                                                                               : "";
}

// A table of paths as a handler.
web_handler handler_of(std::vector<web_route> routes) {
  return [routes = std::move(routes)](const web_request& request) {
    std::string allowed;
    for (const web_route& route : routes) {
      if (route.path == request.path && route.method == request.method) {
        return route.answer(request);
      }
      if (route.path == request.path) {
        allowed += (allowed.empty() ? "" : ", ") + route.method;
      }
    }
    if (allowed.empty()) {
      return text_answer(MHD_HTTP_NOT_FOUND, "nothing here\n");
    }
    web_answer answer = text_answer(MHD_HTTP_METHOD_NOT_ALLOWED, "not that way\n");
    answer.headers.emplace_back(MHD_HTTP_HEADER_ALLOW, allowed);
    return answer;
  };
}

// Whether the client closed its end. What it sent before, as a TLS client does to say that it leaves, may
// still wait to be read.
bool has_left(int socket) {
  pollfd state{socket, POLLRDHUP, 0};
  return poll(&state, 1, 0) > 0 && (state.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
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
  loop(const endpoint& where, web_handler handler, const web_limits& limits, web_tls tls)
      : handler_(std::move(handler)),
        tls_(std::move(tls)),
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
    for (streaming* each : streams_) {
      each->isGone = true;
      wake_up(*each);
    }
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
  // A connection that a stream is sent over. It is suspended while there is nothing to send.
  struct streaming {
    loop* owner = nullptr;
    MHD_Connection* connection = nullptr;
    int socket = -1;
    std::shared_ptr<web_stream> stream;
    std::atomic<bool> hasData{true};  // set on any thread, with `wake_`
    bool isSuspended = false;
    bool isGone = false;
  };

  void start(descriptor listener);
  void work(const std::stop_token& stop);
  int wait_ms() const;
  void end_overdue();
  void take_place(MHD_Connection* connection, void** place);
  bool is_too_large(MHD_Connection* connection) const;
  void resume_streams();
  static void wake_up(streaming& sleeper);
  MHD_Result answer(MHD_Connection* connection, const char* path, const char* method, std::string body);
  MHD_Result send_stream(MHD_Connection* connection, const web_answer& answer);

  // The library's callbacks.
  static void connection_changed(void* self, MHD_Connection* connection, void** place,
                                 MHD_ConnectionNotificationCode what);
  static MHD_Result receive(void* self, MHD_Connection* connection, const char* path, const char* method,
                            const char* version, const char* part, std::size_t* partSize, void** request);
  static ssize_t read_stream(void* stream, std::uint64_t, char* to, std::size_t size);
  static void free_stream(void* stream);
  static void completed(void* self, MHD_Connection* connection, void** request, MHD_RequestTerminationCode);

  const web_handler handler_;
  const web_tls tls_;
  const web_limits limits_;
  std::vector<client> connections_;
  std::vector<streaming*> streams_;  // owned by their responses
  descriptor wake_;
  int port_ = 0;
  MHD_Daemon* daemon_ = nullptr;
  std::atomic<bool> isServing_{true};
  std::jthread thread_;
};

void web_server::loop::start(descriptor listener) {
  const auto idleSeconds = std::chrono::ceil<std::chrono::seconds>(limits_.idle).count();
  const bool isTls = !tls_.certificate.empty();
  const MHD_OptionItem encryption[] = {
      {MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(tls_.certificate.c_str())},
      {MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(tls_.key.c_str())},
      {MHD_OPTION_END, 0, nullptr}};
  const MHD_OptionItem nothing[] = {{MHD_OPTION_END, 0, nullptr}};
  const MHD_OptionItem settings[] = {
      {MHD_OPTION_LISTEN_SOCKET, listener.get(), nullptr},
      {MHD_OPTION_CONNECTION_LIMIT, static_cast<std::intptr_t>(connections_.size()), nullptr},
      {MHD_OPTION_PER_IP_CONNECTION_LIMIT, limits_.connectionsOfClient, nullptr},
      {MHD_OPTION_CONNECTION_MEMORY_LIMIT, kHeadBytes, nullptr},
      {MHD_OPTION_CONNECTION_TIMEOUT, idleSeconds, nullptr},
      {MHD_OPTION_END, 0, nullptr}};
  const unsigned flags = MHD_USE_EPOLL | MHD_USE_ERROR_LOG | MHD_ALLOW_SUSPEND_RESUME |
                         (isTls ? static_cast<unsigned>(MHD_USE_TLS) : 0U);
  daemon_ =
      MHD_start_daemon(flags, 0, nullptr, nullptr, &loop::receive, this, MHD_OPTION_EXTERNAL_LOGGER,
                       &log_line_of_library, nullptr, MHD_OPTION_NOTIFY_CONNECTION, &loop::connection_changed,
                       this, MHD_OPTION_NOTIFY_COMPLETED, &loop::completed, this, MHD_OPTION_ARRAY, settings,
                       MHD_OPTION_ARRAY, isTls ? encryption : nothing, MHD_OPTION_END);
  if (daemon_ == nullptr) {
    throw std::runtime_error(isTls ? "the web server does not start: its certificate and key can't be used"
                                   : "the web server does not start");
  }
  listener.release();  // the daemon's now
}

// Ends by itself only where the library can't go on.
void web_server::loop::work(const std::stop_token& stop) {
  const MHD_DaemonInfo* const info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
  std::array<pollfd, 2> waits = {pollfd{info->epoll_fd, POLLIN, 0}, pollfd{wake_.get(), POLLIN, 0}};
  while (!stop.stop_requested()) {
    poll(waits.data(), waits.size(), wait_ms());
    resume_streams();
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
  auto& own = *static_cast<loop*>(self);
  if (*request == nullptr) {
    *request = new incoming;
    return own.is_too_large(connection)
               ? send_whole(connection, text_answer(MHD_HTTP_CONTENT_TOO_LARGE, "too large\n"))
               : MHD_YES;
  }
  auto& now = *static_cast<incoming*>(*request);
  if (*partSize == 0) {
    return own.answer(connection, path, method, std::move(now.body));
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

MHD_Result web_server::loop::answer(MHD_Connection* connection, const char* path, const char* method,
                                    std::string body) {
  web_request request;
  request.method = method == std::string_view("HEAD") ? "GET" : method;
  request.path = path;
  request.body = std::move(body);
  request.peer = peer_of(connection);
  MHD_get_connection_values(connection, MHD_HEADER_KIND, take_value, &request.headers);
  MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, take_value, &request.query);
  web_answer made;
  try {
    made = handler_(request);
  } catch (const std::exception& error) {
    LOG(1, "fail: web request %s: %s", path, error.what());
    made = text_answer(MHD_HTTP_INTERNAL_SERVER_ERROR, "failed\n");
  }
  return made.stream ? send_stream(connection, made) : send_whole(connection, made);
}

// The system keeps little of a stream ahead of its reader, so that a slow one gets nothing old.
MHD_Result web_server::loop::send_stream(MHD_Connection* connection, const web_answer& answer) {
  auto fresh = std::make_unique<streaming>();
  fresh->owner = this;
  fresh->connection = connection;
  fresh->stream = answer.stream;
  fresh->socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
  setsockopt(fresh->socket, SOL_SOCKET, SO_SNDBUF, &kStreamBuffer, sizeof kStreamBuffer);
  const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  if (auto* const own = static_cast<client*>(info->socket_context); own != nullptr) {
    own->deadline = clock::time_point::max();
  }
  streaming* const owned = fresh.release();  // by the response
  streams_.push_back(owned);
  answer.stream->on_data([wake = wake_.get(), owned] {
    owned->hasData = true;
    eventfd_write(wake, 1);
  });
  const response_holder response(
      MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kStreamBlock, &loop::read_stream, owned,
                                        &loop::free_stream),
      MHD_destroy_response);
  if (!response) {
    free_stream(owned);
    return MHD_NO;
  }
  return send(connection, response, answer);
}

ssize_t web_server::loop::read_stream(void* stream, std::uint64_t, char* to, std::size_t size) {
  auto& self = *static_cast<streaming*>(stream);
  if (self.isGone) {
    return MHD_CONTENT_READER_END_WITH_ERROR;
  }
  self.hasData = false;
  const std::size_t got = self.stream->read({to, size});
  if (got > 0) {
    return static_cast<ssize_t>(got);
  }
  if (const stream_state state = self.stream->state(); state != stream_state::open) {
    return state == stream_state::over ? MHD_CONTENT_READER_END_OF_STREAM : MHD_CONTENT_READER_END_WITH_ERROR;
  }
  self.isSuspended = true;
  MHD_suspend_connection(self.connection);
  return 0;
}

void web_server::loop::free_stream(void* stream) {
  const std::unique_ptr<streaming> own(static_cast<streaming*>(stream));
  own->stream->on_data({});
  std::erase(own->owner->streams_, own.get());
}

void web_server::loop::wake_up(streaming& sleeper) {
  if (std::exchange(sleeper.isSuspended, false)) {
    MHD_resume_connection(sleeper.connection);
  }
}

// Resumes streams that have data, and streams whose client left: a suspended connection does not notice it.
void web_server::loop::resume_streams() {
  eventfd_t count = 0;
  eventfd_read(wake_.get(), &count);
  for (streaming* each : streams_) {
    each->isGone = each->isGone || has_left(each->socket);
    if (each->hasData || each->isGone) {
      wake_up(*each);
    }
  }
}

web_server::web_server(const endpoint& where, std::vector<web_route> routes, const web_limits& limits)
    : web_server(where, handler_of(std::move(routes)), limits) {}

web_server::web_server(const endpoint& where, web_handler handler, const web_limits& limits,
                       const web_tls& tls)
    : loop_(std::make_unique<loop>(where, std::move(handler), limits, tls)) {}

web_server::~web_server() = default;

int web_server::port() const {
  return loop_->port();
}

bool web_server::is_serving() const {
  return loop_->is_serving();
}

}  // namespace host
