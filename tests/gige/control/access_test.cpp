// Taking control of a camera, keeping it, and noticing its loss.
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
namespace registers = gige_protocol::registers;
namespace privilege = gige_protocol::control_privilege;

constexpr std::uint32_t loopback = 0x7f000001;
constexpr std::uint32_t other = 0x7f000007;  // address of another client

class access : public testing::Test {
 protected:
  void open(access_mode mode) {
    control.reset();
    connection = std::make_shared<gige::connection_state>("S1");
    channel.emplace(connection, 0, loopback, gige::patience{});
    control = std::make_unique<gige::camera_control>(connection, *channel, mode);
  }
  std::string denial(access_mode mode) {
    return raised<gige::control_denied>([&] { open(mode); });
  }
  void give_control(std::uint32_t to, std::uint32_t bits) {
    camera.put(registers::primaryApplicationIp, to);
    camera.put(registers::primaryApplicationPort, 4711);
    camera.put(registers::controlChannelPrivilege, bits);
  }
  std::uint32_t privileges() { return camera.get(registers::controlChannelPrivilege); }
  // Answers writes so, and does none.
  void answer_writes(protocol::status result) {
    camera.follow([=](auto& self, const protocol::command& received) {
      const bool isWrite = received.code == protocol::command_code::write_register;
      if (isWrite) {
        self.answer(
            protocol::make_written(protocol::acknowledge_code::write_register, received.id, 1, result));
      }
      return isWrite;
    });
  }
  static bool reads(const protocol::command& received, std::uint32_t address) {
    return received.code == protocol::command_code::read_register &&
           (*protocol::parse_read_registers(received.payload))[0] == address;
  }

  scripted_camera camera{loopback};
  std::shared_ptr<gige::connection_state> connection;
  std::optional<gige::control_channel> channel;
  std::unique_ptr<gige::camera_control> control;
};

// Catches control that is not taken, or not given back.
TEST_F(access, takes_control_and_gives_it_back) {
  for (const auto& [mode, bits] :
       {std::pair(access_mode::control, privilege::control),
        std::pair(access_mode::exclusive, privilege::control | privilege::exclusive),
        std::pair(access_mode::monitor, 0U)}) {
    open(mode);
    EXPECT_EQ(privileges(), bits);
    control.reset();
    EXPECT_EQ(privileges(), 0U);
  }
}

// Catches control that is taken away from another client, and a denial that does not name the client.
TEST_F(access, is_denied_where_another_client_has_control) {
  give_control(0, privilege::control);
  EXPECT_EQ(denial(access_mode::control),
            "camera S1 at 127.0.0.1 is controlled by another client, the camera does not say which");
  open(access_mode::monitor);
  give_control(other, privilege::exclusive);
  EXPECT_EQ(denial(access_mode::monitor), "camera S1 at 127.0.0.1 is controlled by 127.0.0.7 port 4711");
  EXPECT_EQ(privileges(), privilege::exclusive);
  give_control(0, 0);
  answer_writes(protocol::status::success);
  EXPECT_EQ(denial(access_mode::control),
            "camera S1 at 127.0.0.1 takes the command to give control, and does not give it");
}

// Catches heartbeats that are sent although a command was just answered.
TEST_F(access, sends_heartbeats_only_after_a_pause) {
  open(access_mode::control);
  auto latest = clock_type::now();
  auto shortest = clock_type::duration::max();
  camera.follow([&](auto&, const protocol::command& received) {
    const auto pause = clock_type::now() - std::exchange(latest, clock_type::now());
    shortest = reads(received, registers::controlChannelPrivilege) ? std::min(shortest, pause) : shortest;
    return false;
  });
  for (int commands = 0; commands < 100; ++commands) {
    channel->read_register(registers::version);
    std::this_thread::sleep_for(5ms);
  }
  camera.follow({});
  EXPECT_GE(shortest, 200ms);
}

// Catches a loss that is not noticed, or for another reason; and a close that waits for the lost camera.
TEST_F(access, reports_the_reason_of_a_loss) {
  const std::vector<std::pair<std::string, std::function<void()>>> cases{
      {"control was taken away, nobody has it", [&] { give_control(0, 0); }},
      {"control was taken away, 127.0.0.7 port 4711 has it",
       [&] {
         give_control(other, privilege::control);
         answer_writes(protocol::status::access_denied);
         EXPECT_THROW(channel->write_register(0x1000, 1), gige::refused);
       }},
      {"it does not answer any more", [&] { camera.fall_silent(); }}};
  for (const auto& [reason, lose] : cases) {
    camera.follow({});
    give_control(0, 0);
    open(access_mode::control);
    lose();
    EXPECT_TRUE(camera.until([&] { return connection->is_lost(); })) << reason;
    EXPECT_EQ(raised<gige::camera_lost>([&] { connection->raise_if_lost(); }),
              "camera S1 is lost: " + reason);
    expect_no_wait([&] { control.reset(); });
  }
}

// Catches a camera that counts as gone while one of its registers is silent, and a call that outlasts a loss.
TEST_F(access, distinguishes_a_silent_register_from_a_lost_camera) {
  constexpr std::uint32_t silent = 0x1000;
  open(access_mode::control);
  channel->set_patience({.answer = 60s});
  int probes = 0;
  camera.follow([&](auto&, const protocol::command& received) {
    probes += reads(received, registers::version) ? 1 : 0;
    return reads(received, silent);
  });
  auto read = std::async(std::launch::async, [&] { return channel->read_register(silent); });
  EXPECT_TRUE(camera.until([&] { return probes >= 4; }));
  EXPECT_FALSE(connection->is_lost());
  camera.fall_silent();
  expect_no_wait([&] { EXPECT_THROW(read.get(), gige::camera_lost); });
}

}  // namespace
