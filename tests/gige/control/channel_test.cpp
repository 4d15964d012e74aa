// The control channel against cameras that answer wrongly, late, or not at all.
#include "platform/gige/control/control_channel.h"

#include <gtest/gtest.h>

#include <future>
#include <numeric>

#include "platform/gige_protocol/registers.h"
#include "tests/gige/control/scripted_camera.h"

namespace {

using namespace test;
using gige::control_channel;
using gige::patience;

constexpr std::uint32_t here = 0x7f000001;
constexpr std::uint32_t where = 0x1000;  // some register
constexpr std::uint32_t value = 0x01020304;
constexpr patience quick{.answer = 50ms, .retries = 0, .pending = 300ms};
constexpr patience forEver{.answer = 60s, .retries = 3, .pending = 60s};

class channel : public testing::Test {
 protected:
  channel() {
    camera.locked([&] { camera.registers[where] = value; });
  }

  networks& own = networks::instance();
  scripted_camera camera{here};
  std::shared_ptr<gige::connection_state> connection = std::make_shared<gige::connection_state>("S1");
  control_channel control{connection, 0, here, quick};
};

// Catches memory that is cut or put together wrongly, at the ends of commands and of words.
TEST_F(channel, reads_and_writes_any_range_in_whole_words) {
  control.set_patience(patience{});
  std::vector<std::uint8_t> all(3 * protocol::largestMemoryBlock);
  std::iota(all.begin(), all.end(), std::uint8_t{1});
  control.write_memory(where, all);
  for (const std::size_t offset : {0U, 1U, 3U, 4U}) {
    for (const std::size_t size : {0U, 1U, 2U, 5U, 535U, 536U, 537U, 1073U}) {
      std::vector<std::uint8_t> got(size);
      control.read_memory(where + offset, got);
      EXPECT_TRUE(std::equal(got.begin(), got.end(), all.begin() + static_cast<std::ptrdiff_t>(offset)))
          << offset << " " << size;
    }
  }
  control.write_register(where, 7);
  EXPECT_EQ(control.read_register(where), 7U);
  EXPECT_THROW(control.write_memory(where + 1, std::span(all).first(4)), gige::control_error);
  EXPECT_THROW(control.read_memory(0xffff'fffe, all), gige::control_error);
}

// Catches an answer to something else that is taken for this one's, and a wait that junk prolongs.
TEST_F(channel, drops_what_does_not_answer_the_command) {
  const std::uint32_t wrong = 13;
  const std::vector<std::uint32_t> two{wrong, wrong};
  const auto as_read = protocol::acknowledge_code::read_memory;
  const std::vector<std::function<protocol::message(std::uint16_t id)>> cases{
      [&](auto id) {
        return protocol::make_register_values(protocol::next_request_id(id), {&wrong, 1});
      },
      [&](auto id) { return protocol::make_register_values(id, two); },
      [&](auto id) { return protocol::make_register_values(id, {}); },
      [&](auto id) { return protocol::make_written(protocol::acknowledge_code::write_register, id, 1); },
      [&](auto id) { return protocol::make_acknowledge(as_read, id, protocol::status::error); },
      [&](auto id) {
        return protocol::make_read_registers(id, {&where, 1});
      },
      [&](auto) {
        protocol::message junk;
        junk.put(wrong);
        return junk;
      }};
  for (const auto& make : cases) {
    const auto junk = [&](scripted_camera& self, const protocol::command& asked) {
      self.answer(make(asked.id));
      return false;
    };
    camera.follow(junk);
    control.set_patience(patience{});
    EXPECT_EQ(control.read_register(where), value) << &make - cases.data();
  }
  camera.follow([&](scripted_camera& self, const protocol::command& asked) {
    for (int sent = 0; sent < 200; ++sent) {
      self.answer(cases[0](asked.id));
      std::this_thread::sleep_for(5ms);
    }
    return true;
  });
  control.set_patience(quick);
  EXPECT_LT(duration([&] { EXPECT_THROW(control.read_register(where), gige::not_answered); }), 10 * 50ms);
  camera.follow({});
}

// Catches retries that are not made, are made with another id, or forget what they asked before.
TEST_F(channel, sends_again_with_the_same_id_and_takes_a_late_answer) {
  camera.follow([](scripted_camera& self, const protocol::command&) { return self.ids.size() < 4; });
  control.set_patience({.answer = 20ms, .retries = 1000});
  EXPECT_EQ(control.read_register(where), value);
  camera.locked([&] {
    EXPECT_EQ(std::count(camera.ids.begin(), camera.ids.end(), camera.ids[0]), std::ssize(camera.ids));
    camera.ids.clear();
  });
  camera.follow([](scripted_camera&, const protocol::command&) { return true; });
  control.set_patience({.answer = 1ms, .retries = 2});
  const auto text = raised<gige::not_answered>([&] { control.read_register(where); });
  EXPECT_EQ(text, "READREG of 0x00001000 at 127.0.0.1: no answer within 1 ms (tries:3)");
  EXPECT_TRUE(camera.until([&] { return camera.ids.size() == 3; }));
}

// Catches a busy camera that is given up, and one that says so for ever and is believed.
TEST_F(channel, honours_pending_acknowledges_up_to_a_limit) {
  std::promise<void> release;
  std::thread later;
  camera.follow([&](scripted_camera& self, const protocol::command& asked) {
    self.answer(protocol::make_pending(asked.id, 50'000));
    later = std::thread([&self, id = asked.id, go = release.get_future()]() mutable {
      go.wait();
      self.locked([&] { self.answer(protocol::make_register_values(id, {&value, 1})); });
    });
    return true;
  });
  control.set_patience({.answer = 500ms, .retries = 0, .pending = 60s});
  auto read = std::async(std::launch::async, [&] { return control.read_register(where); });
  EXPECT_EQ(read.wait_for(1s), std::future_status::timeout);
  EXPECT_GT(control.last_sign_of_life(), clock_type::now() + 10s) << "it said that it will be busy";
  release.set_value();
  EXPECT_EQ(read.get(), value);
  later.join();

  camera.follow([](scripted_camera& self, const protocol::command& asked) {
    self.answer(protocol::make_pending(asked.id, 0xffff));
    return true;
  });
  control.set_patience({.answer = 20ms, .retries = 1000, .pending = 300ms});
  std::string text;
  EXPECT_LT(duration([&] { text = raised<gige::not_answered>([&] { control.read_register(where); }); }), 3s);
  EXPECT_NE(text.find("still busy after 300 ms"), std::string::npos) << text;
}

// Catches a refusal whose cause is lost on the way, and a denial that nobody looks into.
TEST_F(channel, tells_what_was_refused_and_why) {
  camera.follow([](scripted_camera& self, const protocol::command& asked) {
    self.answer(protocol::make_acknowledge(protocol::acknowledge_of(asked.code), asked.id,
                                           protocol::status::access_denied));
    return true;
  });
  control.set_patience(patience{});
  const auto text = raised<gige::refused>([&] { control.write_register(where, 1); });
  EXPECT_EQ(text, "WRITEREG of 0x00001000 at 127.0.0.1: refused, access denied (0x8006)");
  EXPECT_TRUE(control.take_denial());
  EXPECT_FALSE(control.take_denial());
}

// Catches a wait, or a wait for one's turn, that goes on after somebody ended it.
TEST_F(channel, ends_all_waits_at_once_when_cancelled_or_hurried) {
  const auto silent = [](scripted_camera&, const protocol::command&) { return true; };
  camera.follow(silent);
  control.set_patience(forEver);
  const auto start_two = [&] {
    const auto wait = [&] { return raised<gige::control_error>([&] { control.read_register(where); }); };
    std::array waits{std::async(std::launch::async, wait), std::async(std::launch::async, wait)};
    EXPECT_TRUE(camera.until([&] { return !camera.ids.empty(); }));
    return waits;
  };
  auto waits = start_two();
  int told = 0;
  connection->on_loss([&] { ++told; });
  EXPECT_LT(duration([&] {
              connection->cancel();
              for (auto& each : waits) {
                EXPECT_EQ(each.get(), "camera S1 is lost: waiting for it was cancelled");
              }
            }),
            1s);
  connection->lose("too late");
  EXPECT_EQ(told, 1);
  EXPECT_THROW(control.read_register(where), gige::wait_cancelled);
  camera.follow({});
  control.write_when_closing(where, 5);
  EXPECT_EQ(camera.locked([&] { return camera.registers[where]; }), 5U);

  connection = std::make_shared<gige::connection_state>("S2");
  control_channel other(connection, 0, here, forEver);
  camera.follow(silent);
  camera.locked([&] { camera.ids.clear(); });
  auto read = std::async(std::launch::async, [&] { return other.read_register(where); });
  EXPECT_TRUE(camera.until([&] { return !camera.ids.empty(); }));
  EXPECT_LT(duration([&] {
              connection->hurry(10ms);
              EXPECT_THROW(read.get(), gige::not_answered);
            }),
            1s);
}

}  // namespace
