// Streams over real connections: many at once, readers that stop or leave, TLS; and bodies made by a worker.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <future>
#include <mutex>
#include <new>
#include <thread>

#include "host/web/live/body_worker.h"
#include "host/web/live/outbox.h"
#include "host/web/web_server.h"
#include "tests/host/web/client.h"
#include "tests/program.h"

namespace {

using namespace std::chrono_literals;
using tests::client;
using tests::has;
using tests::program;

class streams : public testing::Test {
 protected:
  explicit streams(const host::web_tls& tls = {})
      : server(
            {"127.0.0.1", 0}, [this](const auto&) { return answer(); }, kLimits, tls) {}

  host::web_answer answer() {
    auto stream = std::make_shared<host::outbox>();
    const std::lock_guard lock(mutex);
    newest = stream;
    return {200, "text/plain", "", {}, stream};
  }
  // The stream of the client that was connected last.
  std::shared_ptr<host::outbox> stream() {
    std::shared_ptr<host::outbox> found;
    EXPECT_TRUE(program::until([&] {
      const std::lock_guard lock(mutex);
      found = newest.lock();
      newest.reset();
      return found != nullptr;
    }));
    return found;
  }
  std::shared_ptr<host::outbox> stream_of(const client& reader) {
    reader.send("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
    reader.read("\r\n\r\n");
    return stream();
  }
  // Whether the reader gets what is put into its stream.
  static bool passes(const std::string& text, host::outbox& stream, const client& reader) {
    stream.put(text);
    return has(reader.read(text + "\r\n"), text);
  }

  static constexpr host::web_limits kLimits = {
      .connections = 120, .connectionsOfClient = 2, .idle = 1s, .whole = 1s};
  std::mutex mutex;
  std::weak_ptr<host::outbox> newest;  // the server has it as long as its connection stands
  host::web_server server;
};

TEST_F(streams, go_on_beyond_the_time_of_a_request_and_end_when_they_are_over) {
  const client reader(server.port());
  const auto endless = stream_of(reader);
  for (int part = 0; part < 25; ++part) {
    std::this_thread::sleep_for(60ms);
    EXPECT_TRUE(passes(fmt::format("<{}>", part), *endless, reader)) << part;
  }
  endless->close();
  EXPECT_EQ(reader.read("0\r\n\r\n"), "0\r\n\r\n");
}

TEST_F(streams, of_a_reader_that_stops_are_ended_and_others_notice_nothing) {
  const client stopped(server.port(), 1);
  const client reading(server.port(), 2);
  std::weak_ptr<host::outbox> slow = stream_of(stopped);
  const auto quick = stream_of(reading);
  slow.lock()->put(std::string(32 << 20, 'x'));
  for (int part = 0; part < 10; ++part) {
    EXPECT_TRUE(passes(fmt::format("<{}>", part), *quick, reading));
  }
  EXPECT_TRUE(program::until([&] {
    quick->put(".");
    return slow.expired();
  }));
}

TEST_F(streams, serve_fifty_viewers_at_once) {
  std::vector<std::unique_ptr<client>> viewers;
  std::vector<std::shared_ptr<host::outbox>> all;
  for (std::uint32_t viewer = 0; viewer < 100; ++viewer) {  // two streams each
    viewers.push_back(std::make_unique<client>(server.port(), viewer / 2 + 1));
    all.push_back(stream_of(*viewers.back()));
    ASSERT_TRUE(all.back());
  }
  for (std::size_t viewer = 0; viewer < all.size(); ++viewer) {
    all[viewer]->put(std::string(200'000, 'x') + fmt::format("<{}>", viewer));
  }
  for (std::size_t viewer = 0; viewer < all.size(); ++viewer) {
    const std::string end = fmt::format("<{}>\r\n", viewer);
    EXPECT_TRUE(viewers[viewer]->read(end).ends_with(end));
  }
}

class tls_streams : public streams {
 protected:
  tls_streams() : streams({.certificate = tests::content(CERTIFICATE), .key = tests::content(CERTIFICATE)}) {}

  // Ends by itself after `seconds`.
  program curl(const char* seconds) const {
    return {testing::TempDir() + fmt::format("tls_streams.{}", getpid()),
            {"curl", "-sNk", "-m", seconds, fmt::format("https://127.0.0.1:{}/", server.port())}};
  }
};

TEST_F(tls_streams, come_whole_although_they_pause) {
  program client = curl("60");
  const auto source = stream();
  std::string sent;
  for (const char letter : {'a', 'b', 'c'}) {
    sent += std::string(300'000, letter);
    source->put(std::string(300'000, letter));
    ASSERT_TRUE(program::until([&] { return client.out() == sent; })) << client.out().size();
  }
  source->close();
  EXPECT_EQ(client.wait(), 0);
}

// Such a client says that it leaves: bytes that nobody reads stand before the end of the connection.
TEST_F(tls_streams, of_readers_that_left_are_gone_even_when_there_is_nothing_to_send) {
  program client = curl("1");
  std::weak_ptr<host::outbox> left = stream();
  client.wait();
  EXPECT_TRUE(program::until([&] { return left.expired(); }));
}

// A picture that takes long must hold up neither the server nor, by its number, the memory.
TEST(body_worker, makes_bodies_elsewhere_and_not_too_many) {
  host::body_worker worker;
  std::promise<void> begin;
  const auto gate = begin.get_future().share();
  int madeCount = 0;
  const auto make = [&] {
    gate.wait();
    ++madeCount;
    return std::string("body");
  };
  std::vector<std::shared_ptr<host::web_stream>> bodies;
  for (std::size_t body = 0; body < host::body_worker::kBodiesMax; ++body) {
    bodies.push_back(worker.start(make));
  }
  EXPECT_EQ(worker.start(make), nullptr);
  bodies.erase(bodies.begin() + 1);  // its reader left
  bodies.push_back(worker.start([]() -> std::string { throw std::bad_alloc(); }));
  begin.set_value();
  ASSERT_TRUE(program::until([&] { return bodies.back()->state() == host::stream_state::broken; }));
  EXPECT_EQ(madeCount, static_cast<int>(host::body_worker::kBodiesMax) - 1);
  std::array<char, 9> text{};
  EXPECT_EQ(bodies.front()->read(text), 4U);
  EXPECT_EQ(bodies.front()->state(), host::stream_state::over);
}

TEST(web_server, refuses_a_certificate_that_is_none) {
  EXPECT_THROW(host::web_server({"127.0.0.1", 0}, [](const auto&) { return host::web_answer{}; }, {},
                                {.certificate = "no", .key = "no"}),
               std::runtime_error);
}

}  // namespace
