#include "platform/gige/description/http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace gige {
namespace {

constexpr std::size_t mostHead = 16'384;  // status line and header fields, bytes
constexpr std::string_view endOfHead = "\r\n\r\n";

[[noreturn]] void refuse(const std::string& what) {
  throw description_error("the description's HTTP server " + what);
}

[[noreturn]] void refuse_errno(const std::string& what, int error) {
  refuse(what + ": " + std::strerror(error));
}

class http_connection {
 public:
  explicit http_connection(const http_request& request)
      : request_(request), socket_(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(request.port);
    to.sin_addr.s_addr = htonl(request.host);
    if (socket_ < 0) {
      refuse_errno("cannot be asked", errno);
    }
    if (connect(socket_, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0 && errno != EINPROGRESS) {
      const int error = errno;
      close(socket_);
      refuse_errno("cannot be reached", error);
    }
  }
  http_connection(const http_connection&) = delete;
  http_connection& operator=(const http_connection&) = delete;
  ~http_connection() { close(socket_); }

  void send(std::string_view text) {
    while (!text.empty()) {
      wait_for(POLLOUT);
      const ssize_t sent = ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL);
      if (sent < 0 && errno != EAGAIN) {
        refuse_errno("takes no request", errno);
      }
      text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
  }

  // Reads until the server closes the connection.
  std::string receive(std::size_t most) {
    std::string received;
    std::array<char, 65'536> piece{};
    for (ssize_t size = 1; size != 0;) {
      wait_for(POLLIN);
      size = recv(socket_, piece.data(), piece.size(), 0);
      if (size < 0 && errno != EAGAIN) {
        refuse_errno("breaks off", errno);
      }
      received.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
      if (received.size() > most) {
        refuse("sends more than " + std::to_string(most) + " bytes");
      }
    }
    return received;
  }

 private:
  void wait_for(short what) {
    using namespace std::chrono;
    std::array<pollfd, 2> both = {pollfd{socket_, what, 0}, pollfd{request_.cancelled, POLLIN, 0}};
    const auto left = ceil<milliseconds>(request_.deadline - steady_clock::now());
    const int ready =
        poll(both.data(), both.size(), static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    if (ready == 0) {
      refuse("has not sent all in time");
    }
    if (both[1].revents != 0) {
      refuse("is not waited for any longer: cancelled");
    }
  }

  const http_request& request_;
  const int socket_;
};

}  // namespace

std::string http_get(const http_request& request) {
  http_connection server(request);
  server.send("GET " + request.path + " HTTP/1.0\r\nConnection: close\r\n\r\n");
  return std::string(content_of(server.receive(request.most + mostHead)));
}

std::string_view content_of(std::string_view answer) {
  const std::size_t end = answer.find(endOfHead);
  const std::string_view head = answer.substr(0, end);  // the whole answer if it has no end of head
  if (end > mostHead || !head.starts_with("HTTP/1.")) {
    refuse("does not answer by HTTP");
  }
  const std::string_view status = head.substr(0, head.find("\r\n"));
  if (status.substr(std::min(status.size(), status.find(' '))).substr(0, 5) != " 200 ") {
    refuse("answers '" + std::string(status.substr(0, 64)) + "', right is 200");
  }
  return answer.substr(end + endOfHead.size());
}

}  // namespace gige
