// What clients of the web server may and can't do.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/config/descriptor.h"
#include "host/web/web_server.h"
#include "tests/program.h"

namespace {

using namespace std::chrono_literals;
using tests::clock_type;
using tests::has;

class web : public testing::Test {
 protected:
  void serve(const host::web_limits& limits) {
    server = std::make_unique<host::web_server>(
        host::endpoint{"127.0.0.1", 0},
        std::vector<host::web_route>{
            {"GET", "/text", [](const auto&) { return host::web_answer{.body = "hello"}; }},
            {"POST", "/length",
             [](const auto& request) {
               return host::web_answer{.body = std::to_string(request.body.size())};
             }},
            {"GET", "/large",
             [](const auto&) { return host::web_answer{.body = std::string(16 << 20, 'x')}; }},
            {"GET", "/broken", [](const auto&) -> host::web_answer { throw std::runtime_error("no"); }}},
        limits);
  }
  host::descriptor connect() const {
    host::descriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(server->port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval patience{20, 0};
    setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    return client;
  }
  static void send(const host::descriptor& client, const std::string& text) {
    ::send(client.get(), text.data(), text.size(), MSG_NOSIGNAL);
  }
  // What the server says until it closes the connection.
  static std::string rest(const host::descriptor& client) {
    std::string all;
    std::array<char, 4096> part{};
    for (ssize_t got = 0; (got = recv(client.get(), part.data(), part.size(), 0)) > 0;) {
      all.append(part.data(), static_cast<std::size_t>(got));
    }
    return all;
  }
  std::string ask(const std::string& line, const std::string& more = "\r\n") const {
    const auto client = connect();
    send(client, line + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" + more);
    return rest(client);
  }

  std::unique_ptr<host::web_server> server;
};

TEST_F(web, answers_by_its_table) {
  serve({.bodyBytes = 8});
  const struct {
    std::string answer;
    std::string begins;
    std::string has;
  } cases[] = {
      {ask("GET /text"), "HTTP/1.1 200", "\r\n\r\nhello"},
      {ask("GET /text?a=b"), "HTTP/1.1 200", "\r\n\r\nhello"},
      {ask("HEAD /text"), "HTTP/1.1 200", "Content-Length: 5"},
      {ask("POST /text", "Content-Length: 0\r\n\r\n"), "HTTP/1.1 405", "Allow: GET"},
      {ask("GET /nowhere"), "HTTP/1.1 404", ""},
      {ask("GET /broken"), "HTTP/1.1 500", "failed"},
      {ask("GET /text", "X: " + std::string(20'000, 'x') + "\r\n\r\n"), "HTTP/1.1 431", ""},
      {ask("POST /length", "Content-Length: 8\r\n\r\n12345678"), "HTTP/1.1 200", "\r\n\r\n8"},
      {ask("POST /length", "Content-Length: 9\r\n\r\n123456789"), "HTTP/1.1 413", ""},
      {ask("POST /length", "Content-Length: 99999999999999999999\r\n\r\n"), "HTTP/1.1 4", ""},
      {ask("POST /length", "Transfer-Encoding: chunked\r\n\r\n9\r\n123456789\r\n0\r\n\r\n"), "", ""},
  };
  for (const auto& each : cases) {
    EXPECT_TRUE(each.answer.starts_with(each.begins) && has(each.answer, each.has))
        << each.answer.substr(0, 300);
  }
  EXPECT_EQ(cases[std::size(cases) - 1].answer, "") << "a body without a length must not be without a limit";
  EXPECT_THROW(host::web_server({"127.0.0.1", server->port()}, {}), std::runtime_error);
  EXPECT_THROW(host::web_server({"203.0.113.1", 0}, {}), std::runtime_error);
}

TEST_F(web, a_slow_client_costs_a_connection_for_a_while_only) {
  serve({.connections = 4, .connectionsOfClient = 4, .whole = 300ms});
  std::vector<host::descriptor> slow;
  for (int at = 0; at < 4; ++at) {
    slow.push_back(connect());
    send(slow.back(), at % 2 == 0 ? "GET /text HT" : "GET /large HTTP/1.1\r\nHost: x\r\n\r\n");
  }
  EXPECT_TRUE(has(ask("GET /text"), "hello")) << "the places of slow clients were not freed";
  EXPECT_LT(rest(slow[1]).size(), 16U << 20U);
  EXPECT_EQ(rest(slow[0]), "");
}

TEST_F(web, its_end_waits_for_nobody) {
  serve({.connections = 4, .connectionsOfClient = 2});
  std::vector<host::descriptor> slow;
  for (int at = 0; at < 6; ++at) {
    slow.push_back(connect());
    send(slow.back(), "GET /large HTTP/1.1\r\nHost: x\r\n\r\n");
  }
  const auto began = clock_type::now();
  server.reset();
  EXPECT_LT(clock_type::now() - began, 2s);
}

}  // namespace
