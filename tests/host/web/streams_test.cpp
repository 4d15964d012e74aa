// Streams over real connections: many at once, readers that stop or leave, TLS; and bodies made by a worker.
#include <arpa/inet.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <future>
#include <mutex>
#include <thread>

#include "host/config/descriptor.h"
#include "host/web/live/body_worker.h"
#include "host/web/live/outbox.h"
#include "host/web/web_server.h"
#include "tests/host/support.h"
#include "tests/program.h"

namespace {

using namespace std::chrono_literals;
using tests::has;

bool comes_true(const std::function<bool()>& condition) {
  for (int time = 0; time < 3000 && !condition(); ++time) {
    std::this_thread::sleep_for(10ms);
  }
  return condition();
}

class streams : public testing::Test {
 protected:
  explicit streams(const host::web_tls& tls = {})
      : server(
            {"127.0.0.1", 0}, [this](const auto& request) { return answer(request); }, kLimits, tls) {}

  host::web_answer answer(const host::web_request&) {
    auto stream = std::make_shared<host::outbox>();
    const std::lock_guard lock(mutex);
    made = stream;
    return {200, "text/plain", "", {}, stream};
  }
  // From a loopback address of its own, so that each counts as another client.
  host::descriptor connect(int number = 1) const {
    host::descriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + static_cast<std::uint32_t>(number));
    EXPECT_EQ(bind(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    address.sin_port = htons(static_cast<std::uint16_t>(server.port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval patience{30, 0};
    setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    return client;
  }
  static void ask(const host::descriptor& client, const char* path) {
    const std::string text = fmt::format("GET {} HTTP/1.1\r\nHost: localhost\r\n\r\n", path);
    EXPECT_EQ(::send(client.get(), text.data(), text.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(text.size()));
  }
  // What comes until `wanted` came, or the connection ends.
  static std::string read(const host::descriptor& client, const std::string& wanted) {
    std::string all;
    std::array<char, 4096> part{};
    for (ssize_t got = 1; got > 0 && !has(all, wanted);) {
      got = recv(client.get(), part.data(), part.size(), 0);
      all.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    }
    return all;
  }
  // The stream of a client that was just connected.
  std::shared_ptr<host::outbox> stream_of(const host::descriptor& client) {
    ask(client, "/stream");
    read(client, "\r\n\r\n");
    const std::lock_guard lock(mutex);
    return made.lock();
  }
  static constexpr host::web_limits kLimits = {
      .connections = 120, .connectionsOfClient = 2, .idle = 1s, .whole = 1s};
  std::mutex mutex;
  std::weak_ptr<host::outbox> made;  // last; the server has it as long as its connection stands
  host::web_server server;
};

TEST_F(streams, go_on_beyond_the_time_of_a_request_and_end_when_they_are_over) {
  const host::descriptor client = connect();
  const auto stream = stream_of(client);
  for (int part = 0; part < 25; ++part) {
    std::this_thread::sleep_for(60ms);
    stream->put(fmt::format("<{}>", part));
    EXPECT_TRUE(has(read(client, fmt::format("<{}>", part)), "<")) << part;
  }
  stream->close();
  EXPECT_TRUE(has(read(client, "0\r\n\r\n"), "0\r\n\r\n"));
}

TEST_F(streams, of_a_reader_that_stops_are_ended_and_others_notice_nothing) {
  const host::descriptor stopped = connect(1);
  const host::descriptor reading = connect(2);
  std::weak_ptr<host::outbox> slow = stream_of(stopped);
  const auto quick = stream_of(reading);
  slow.lock()->put(std::string(32 << 20, 'x'));
  for (int part = 0; part < 10; ++part) {
    quick->put(fmt::format("<{}>", part));
    EXPECT_TRUE(has(read(reading, fmt::format("<{}>", part)), "<"));
  }
  EXPECT_TRUE(comes_true([&] {
    quick->put(".");
    return slow.expired();
  }));
}

TEST_F(streams, of_readers_that_left_are_gone_even_when_there_is_nothing_to_send) {
  std::weak_ptr<host::outbox> left;
  {
    const host::descriptor client = connect();
    left = stream_of(client);
    EXPECT_FALSE(left.expired());
  }
  EXPECT_TRUE(comes_true([&] { return left.expired(); }));
}

TEST_F(streams, serve_fifty_viewers_at_once) {
  std::vector<host::descriptor> clients;
  std::vector<std::shared_ptr<host::outbox>> all;
  for (int viewer = 0; viewer < 100; ++viewer) {  // two streams each
    clients.push_back(connect(viewer / 2 + 1));
    all.push_back(stream_of(clients.back()));
    ASSERT_TRUE(all.back());
  }
  for (std::size_t viewer = 0; viewer < all.size(); ++viewer) {
    all[viewer]->put(std::string(200'000, 'x') + fmt::format("<{}>", viewer));
  }
  for (std::size_t viewer = 0; viewer < all.size(); ++viewer) {
    EXPECT_TRUE(has(read(clients[viewer], fmt::format("<{}>", viewer)), fmt::format("<{}>", viewer)));
  }
}

class tls_streams : public streams {
 protected:
  tls_streams() : streams({.certificate = tests::content(CERTIFICATE), .key = tests::content(CERTIFICATE)}) {}

  // An independent client, which ends by itself after `seconds`.
  tests::program curl(const char* seconds) const {
    return {files.directory / "curl",
            {"curl", "-sNk", "-m", seconds, fmt::format("https://127.0.0.1:{}/", server.port())}};
  }
  std::shared_ptr<host::outbox> stream() {
    std::shared_ptr<host::outbox> found;
    EXPECT_TRUE(comes_true([&] {
      const std::lock_guard lock(mutex);
      found = made.lock();
      return found != nullptr;
    }));
    return found;
  }

  struct directory_of_test : tests::host_files {
    using tests::host_files::directory;
    void TestBody() override {}
  } files;
};

TEST_F(tls_streams, come_whole_although_they_pause) {
  tests::program client = curl("60");
  const auto source = stream();
  ASSERT_TRUE(source);
  std::string sent;
  for (const char letter : {'a', 'b', 'c'}) {
    sent += std::string(300'000, letter);
    source->put(std::string(300'000, letter));
    ASSERT_TRUE(comes_true([&] { return client.out() == sent; })) << client.out().size();
  }
  source->close();
  EXPECT_EQ(client.wait(), 0);
}

// Such a client says that it leaves: bytes that nobody reads stand before the end of the connection.
TEST_F(tls_streams, of_readers_that_left_are_gone_even_when_there_is_nothing_to_send) {
  tests::program client = curl("1");
  std::weak_ptr<host::outbox> left = stream();
  client.wait();
  EXPECT_TRUE(comes_true([&] { return left.expired(); }));
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
  ASSERT_TRUE(comes_true([&] { return bodies.back()->state() == host::stream_state::broken; }));
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
