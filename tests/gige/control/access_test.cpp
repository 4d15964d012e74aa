// Taking control of a camera, keeping it, and noticing when it is gone.
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>
#include <optional>

#include "platform/gige/control/camera_control.h"
#include "platform/gige_protocol/registers.h"
#include "tests/gige/control/scripted_camera.h"

namespace {

using namespace test;
using gige::access_mode;
using gige::camera_control;
namespace registers = gige_protocol::registers;
namespace privilege = gige_protocol::control_privilege;

constexpr std::uint32_t here = 0x7f000001;

class access : public testing::Test {
 protected:
  void open(access_mode mode) {
    ours.reset();
    connection = std::make_shared<gige::connection_state>("S1");
    control.emplace(connection, 0, here, gige::patience{});
    ours = std::make_unique<camera_control>(connection, *control, mode);
  }
  std::string denial(access_mode mode) {
    return raised<gige::control_denied>([&] { open(mode); });
  }
  void set(std::uint32_t address, std::uint32_t to) {
    camera.locked([&] { camera.registers[address] = to; });
  }
  std::uint32_t privileges() {
    return camera.locked([&] { return camera.registers[registers::controlChannelPrivilege]; });
  }
  static bool reads(const protocol::command& asked, std::uint32_t address) {
    return asked.code == protocol::command_code::read_register &&
           (*protocol::parse_read_registers(asked.payload))[0] == address;
  }
  // Answers all writes with that status, and does none.
  static bool answer_write(const scripted_camera& self, const protocol::command& asked,
                           protocol::status result) {
    const bool write = asked.code == protocol::command_code::write_register;
    if (write) {
      self.answer(protocol::make_written(protocol::acknowledge_code::write_register, asked.id, 1, result));
    }
    return write;
  }

  networks& own = networks::instance();
  scripted_camera camera{here};
  std::shared_ptr<gige::connection_state> connection;
  std::optional<gige::control_channel> control;
  std::unique_ptr<camera_control> ours;
};

// Catches control that is not taken, taken away from somebody, or not given back.
TEST_F(access, takes_control_where_nobody_has_it_and_gives_it_back) {
  for (const auto& [mode, bits] :
       {std::pair(access_mode::control, privilege::control),
        std::pair(access_mode::exclusive, privilege::control | privilege::exclusive),
        std::pair(access_mode::monitor, 0U)}) {
    open(mode);
    EXPECT_EQ(privileges(), bits);
    ours.reset();
    EXPECT_EQ(privileges(), 0U);
  }
  set(registers::controlChannelPrivilege, privilege::control);
  EXPECT_EQ(denial(access_mode::control),
            "camera S1 at 127.0.0.1 is controlled by another client, the camera does not say which");
  open(access_mode::monitor);
  set(registers::primaryApplicationIp, 0x7f000007);
  set(registers::primaryApplicationPort, 4711);
  set(registers::controlChannelPrivilege, privilege::exclusive);
  EXPECT_EQ(denial(access_mode::monitor), "camera S1 at 127.0.0.1 is controlled by 127.0.0.7 port 4711");
  EXPECT_EQ(privileges(), privilege::exclusive);
}

// Catches control that is thought to be had since the command was answered, and a text without the cause.
TEST_F(access, tells_of_control_that_is_not_given) {
  camera.follow([](scripted_camera& self, const protocol::command& asked) {
    return answer_write(self, asked, protocol::status::success);
  });
  EXPECT_NE(denial(access_mode::control).find("does not give it"), std::string::npos);
  camera.follow([](scripted_camera& self, const protocol::command& asked) {  // somebody was quicker
    self.registers[registers::controlChannelPrivilege] |=
        asked.code == protocol::command_code::write_register ? privilege::control : 0;
    return answer_write(self, asked, protocol::status::access_denied);
  });
  EXPECT_NE(denial(access_mode::control).find("controlled by another"), std::string::npos);
}

// Catches heartbeats that do not come, and those that are sent although the camera was just heard of.
TEST_F(access, sends_heartbeats_only_where_nothing_else_was_answered) {
  open(access_mode::control);
  int heartbeats = 0;
  auto answered = clock_type::now();
  auto shortest = clock_type::duration::max();
  camera.follow([&](scripted_camera&, const protocol::command& asked) {
    if (reads(asked, registers::controlChannelPrivilege)) {
      ++heartbeats;
      shortest = std::min(shortest, clock_type::now() - answered);
    }
    answered = clock_type::now();
    return false;
  });
  EXPECT_TRUE(camera.until([&] { return heartbeats >= 2; }));
  for (const auto end = clock_type::now() + 600ms; clock_type::now() < end;) {
    control->read_register(registers::version);
    std::this_thread::sleep_for(5ms);
  }
  camera.follow({});
  EXPECT_GE(shortest, 200ms);
}

// Catches a loss that is not noticed, or whose reason is another one; and a close that waits for the lost.
TEST_F(access, notices_that_a_camera_is_lost_and_says_why) {
  struct loss {
    const char* reason;
    std::function<void()> happens;
  };
  const std::vector<loss> cases{
      {"control was taken away, nobody has it", [&] { set(registers::controlChannelPrivilege, 0); }},
      {"control was taken away, 127.0.0.7 port 4711 has it",
       [&] {
         set(registers::primaryApplicationIp, 0x7f000007);
         set(registers::primaryApplicationPort, 4711);
         camera.follow([](scripted_camera& self, const protocol::command& asked) {
           return answer_write(self, asked, protocol::status::access_denied);
         });
         EXPECT_THROW(control->write_register(0x1000, 1), gige::refused);
       }},
      {"it does not answer any more",
       [&] { camera.follow([](scripted_camera&, const protocol::command&) { return true; }); }}};
  for (const loss& each : cases) {
    camera.follow({});
    set(registers::controlChannelPrivilege, 0);
    open(access_mode::control);
    each.happens();
    EXPECT_LT(duration([&] { EXPECT_TRUE(camera.until([&] { return connection->is_lost(); })) << each.reason; }), 10s);
    EXPECT_EQ(raised<gige::camera_lost>([&] { connection->raise_if_lost(); }),
              std::string("camera S1 is lost: ") + each.reason);
    EXPECT_LT(duration([&] { ours.reset(); }), 1s);
  }
}

// Catches a camera that counts as gone while one of its registers is silent, and a call that waits for it on.
TEST_F(access, tells_a_silent_register_from_a_camera_that_is_gone) {
  constexpr std::uint32_t silent = 0x1000;
  open(access_mode::control);
  control->set_patience({.answer = 60s});
  int signs = 0;
  bool gone = false;
  camera.follow([&](scripted_camera&, const protocol::command& asked) {
    signs += reads(asked, registers::version) ? 1 : 0;
    return gone || reads(asked, silent);
  });
  auto read = std::async(std::launch::async, [&] { return control->read_register(silent); });
  EXPECT_TRUE(camera.until([&] { return signs >= 4; }));
  EXPECT_FALSE(connection->is_lost());
  camera.locked([&] { gone = true; });
  EXPECT_LT(duration([&] { EXPECT_THROW(read.get(), gige::camera_lost); }), 10s);
  camera.follow({});
}

// Catches a close that waits for a camera that stopped answering a moment ago.
TEST_F(access, closes_a_silent_camera_quickly) {
  open(access_mode::control);
  int asked = 0;
  camera.follow([&](scripted_camera&, const protocol::command&) { return ++asked > 0; });
  EXPECT_TRUE(camera.until([&] { return asked > 0; })) << "a heartbeat is waited for";
  EXPECT_LT(duration([&] { ours.reset(); }), 1s);
  EXPECT_FALSE(connection->is_lost());
  camera.follow({});
}

}  // namespace
