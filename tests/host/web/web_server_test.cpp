// What clients of the web server may and can't do.
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/web/web_server.h"
#include "tests/host/web/client.h"
#include "tests/program.h"

namespace {

using namespace std::chrono_literals;
using tests::client;
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
  std::string ask(const std::string& line, const std::string& more = "\r\n") const {
    const client asking(server->port());
    asking.send(line + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" + more);
    return asking.read();
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
    EXPECT_EQ(each.answer.substr(0, each.begins.size()), each.begins);
    EXPECT_TRUE(has(each.answer, each.has)) << each.answer.substr(0, 300);
  }
  EXPECT_EQ(cases[std::size(cases) - 1].answer, "") << "a body without a length must not be without a limit";
  EXPECT_THROW(host::web_server({"127.0.0.1", server->port()}, {}), std::runtime_error);
  EXPECT_THROW(host::web_server({"203.0.113.1", 0}, {}), std::runtime_error);
}

TEST_F(web, a_slow_client_costs_a_connection_for_a_while_only) {
  serve({.connections = 4, .connectionsOfClient = 4, .whole = 300ms});
  std::vector<std::unique_ptr<client>> slow;
  for (int at = 0; at < 4; ++at) {
    slow.push_back(std::make_unique<client>(server->port()));
    slow.back()->send(at % 2 == 0 ? "GET /text HT" : "GET /large HTTP/1.1\r\nHost: x\r\n\r\n");
  }
  EXPECT_TRUE(has(ask("GET /text"), "hello")) << "the places of slow clients were not freed";
  EXPECT_LT(slow[1]->read().size(), 16U << 20U);
  EXPECT_EQ(slow[0]->read(), "");
}

TEST_F(web, its_end_waits_for_nobody) {
  serve({.connections = 4, .connectionsOfClient = 2, .idle = 60s, .whole = 60s});
  std::vector<std::unique_ptr<client>> slow;
  for (int at = 0; at < 6; ++at) {
    slow.push_back(std::make_unique<client>(server->port()));
    slow.back()->send("GET /large HTTP/1.1\r\nHost: x\r\n\r\n");
  }
  const auto began = clock_type::now();
  server.reset();
  EXPECT_LT(clock_type::now() - began, 30s);
}

}  // namespace
