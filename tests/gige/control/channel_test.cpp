// The control channel against cameras that answer wrongly, late, or not at all.
#include "platform/gige/control/control_channel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <numeric>

#include "platform/gige_protocol/registers.h"
#include "tests/gige/control/scripted_camera.h"

namespace {

using namespace test;
using gige::control_channel;
using gige::patience;

constexpr std::uint32_t loopback = 0x7f000001;
constexpr std::uint32_t address = 0x1000;  // of some register
constexpr std::uint32_t value = 0x01020304;
constexpr patience forEver{.answer = 60s, .retries = 3, .pending = 60s};

class channel : public testing::Test {
 protected:
  channel() { camera.put(address, value); }

  scripted_camera camera{loopback};
  std::shared_ptr<gige::connection_state> connection = std::make_shared<gige::connection_state>("S1");
  control_channel control{connection, 0, loopback, patience{}};
};

// Catches memory that is cut or put together wrongly, at the ends of commands and of words.
TEST_F(channel, reads_and_writes_any_range_in_whole_words) {
  std::vector<std::uint8_t> all(3 * protocol::largestMemoryBlock);
  std::iota(all.begin(), all.end(), std::uint8_t{1});
  control.write_memory(address, all);
  for (const std::size_t offset : {0U, 1U, 3U, 4U}) {
    for (const std::size_t size : {0U, 1U, 2U, 5U, 535U, 536U, 537U, 1073U}) {
      std::vector<std::uint8_t> bytes(size);
      control.read_memory(address + offset, bytes);
      EXPECT_TRUE(std::ranges::equal(bytes, std::span(all).subspan(offset, size))) << offset << " " << size;
    }
  }
  control.write_register(address, 7);
  EXPECT_EQ(control.read_register(address), 7U);
  EXPECT_THROW(control.write_memory(address + 1, std::span(all).first(4)), gige::control_error);
  EXPECT_THROW(control.read_memory(0xffff'fffe, all), gige::control_error);
}

// Catches junk that is taken for the answer, and junk that prolongs the wait for it.
TEST_F(channel, drops_what_does_not_answer_the_command) {
  const std::vector two{13U, 13U};
  const std::span one(two.data(), 1);
  std::atomic<int> step = 0;
  camera.follow([&](auto& self, const protocol::command& received) {
    const std::uint16_t id = received.id;
    const std::array junk{protocol::make_register_values(protocol::next_request_id(id), one),
                          protocol::make_register_values(id, two),
                          protocol::make_register_values(id, {}),
                          protocol::make_written(protocol::acknowledge_code::write_register, id, 1),
                          protocol::make_read_memory(id, {.address = address, .count = 4}),
                          protocol::message()};
    for (const auto& each : junk) {
      self.answer(each);
    }
    while (step == 1) {
      self.answer(junk[0]);
    }
    return false;
  });
  EXPECT_EQ(control.read_register(address), value);
  step = 1;
  control.set_patience({.answer = 50ms, .retries = 0});
  EXPECT_THROW(control.read_register(address), gige::not_answered);
  step = 2;
  camera.follow({});
}

// Catches retries that are not made, or have another id, so that a late answer to an earlier one is dropped.
TEST_F(channel, sends_again_with_the_same_id) {
  camera.follow([](auto& self, auto&) { return self.ids.size() < 4; });
  control.set_patience({.answer = 20ms, .retries = 1000});
  EXPECT_EQ(control.read_register(address), value);
  camera.locked([&] {
    EXPECT_EQ(std::ranges::count(camera.ids, camera.ids[0]), std::ssize(camera.ids));
    camera.ids.clear();
  });
  camera.fall_silent();
  control.set_patience({.answer = 1ms, .retries = 2});
  EXPECT_EQ(raised<gige::not_answered>([&] { control.read_register(address); }),
            "READREG of 0x00001000 at 127.0.0.1: no answer within 1 ms (tries:3)");
  EXPECT_TRUE(camera.until([&] { return camera.ids.size() == 3; }));
}

// Catches a busy camera that is given up, and one that is believed however long it says so.
TEST_F(channel, honours_pending_acknowledges_up_to_a_limit) {
  std::uint16_t id = 0;
  camera.follow([&](auto& self, const protocol::command& received) {
    self.answer(protocol::make_pending(received.id, 50'000));
    id = received.id;
    return true;
  });
  control.set_patience({.answer = 500ms, .retries = 0, .pending = 60s});
  auto read = std::async(std::launch::async, [&] { return control.read_register(address); });
  EXPECT_EQ(read.wait_for(1s), std::future_status::timeout);
  EXPECT_GT(control.last_sign_of_life(), clock_type::now() + 10s) << "it said that it will be busy";
  camera.locked([&] { camera.answer(protocol::make_register_values(id, {&value, 1})); });
  EXPECT_EQ(read.get(), value);
  control.set_patience({.answer = 20ms, .retries = 1000, .pending = 300ms});
  const auto text = raised<gige::not_answered>([&] { control.read_register(address); });
  EXPECT_NE(text.find("still busy after 300 ms"), std::string::npos) << text;
  camera.follow({});
}

// Catches a refusal without its cause, and a denial that the heartbeat does not hear of.
TEST_F(channel, reports_what_was_refused_and_why) {
  camera.follow([](auto& self, const protocol::command& received) {
    self.answer(protocol::make_acknowledge(protocol::acknowledge_of(received.code), received.id,
                                           protocol::status::access_denied));
    return true;
  });
  EXPECT_EQ(raised<gige::refused>([&] { control.write_register(address, 1); }),
            "WRITEREG of 0x00001000 at 127.0.0.1: refused, access denied (0x8006)");
  EXPECT_TRUE(control.take_denial());
  EXPECT_FALSE(control.take_denial());
}

// Catches a wait for an answer, or for the channel, that goes on after it was cancelled or hurried.
TEST_F(channel, ends_all_waits_when_cancelled_or_hurried) {
  control.set_patience(forEver);
  camera.fall_silent();
  const auto read = [&] { return raised<gige::control_error>([&] { control.read_register(address); }); };
  std::array reads{std::async(std::launch::async, read), std::async(std::launch::async, read)};
  EXPECT_TRUE(camera.until([&] { return !camera.ids.empty(); }));
  int losses = 0;
  connection->on_loss([&] { ++losses; });
  expect_no_wait([&] {
    connection->cancel();
    for (auto& each : reads) {
      EXPECT_EQ(each.get(), "camera S1 is lost: waiting for it was cancelled");
    }
  });
  connection->lose("too late");
  EXPECT_EQ(losses, 1);
  EXPECT_EQ(read(), "camera S1 is lost: waiting for it was cancelled");
  camera.follow({});
  control.write_when_closing(address, 5);
  EXPECT_EQ(camera.get(address), 5U);

  connection = std::make_shared<gige::connection_state>("S2");
  control_channel other(connection, 0, loopback, forEver);
  camera.fall_silent();
  camera.locked([&] { camera.ids.clear(); });
  auto hurried = std::async(std::launch::async, [&] { other.read_register(address); });
  EXPECT_TRUE(camera.until([&] { return !camera.ids.empty(); }));
  connection->hurry(10ms);
  expect_no_wait([&] { EXPECT_THROW(hurried.get(), gige::not_answered); });
}

}  // namespace
