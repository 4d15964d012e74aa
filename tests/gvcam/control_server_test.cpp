// The control channel without sockets: commands in, answers and consequences out. Time is an argument.
#include "platform/gvcam/control_server.h"

#include <gmock/gmock.h>

#include <random>

#include "platform/gvcam/power_up.h"
#include "tests/gvcam/client_commands.h"

namespace gvcam_test {
namespace {

using namespace std::chrono_literals;
using gvcam::control_server;
using gvcam::endpoint;
using gvcam::outcome;
using gvcam::register_memory;
namespace features = gvcam::features;

constexpr endpoint first{0x0a000001, 5000};
constexpr endpoint second{0x0a000001, 5001};  // another program on the same machine

constexpr gige_protocol::mac_address mac = {2, 0, 1, 2, 3, 4};

class control : public testing::Test {
 protected:
  outcome send(const endpoint& from, const message& command) {
    return server.handle(command.view(), from, now);
  }
  status sent_status(const endpoint& from, const message& command) {
    const outcome result = send(from, command);
    return result.answer ? status_of(result.answer->view()) : status::no_message;
  }
  status write(const endpoint& from, std::uint32_t address, std::uint32_t value) {
    return sent_status(from, write_word(++id, address, value));
  }
  std::uint32_t read(const endpoint& from, std::uint32_t address) {
    return words_of(send(from, read_word(++id, address)).answer->view()).at(0);
  }
  void take_control() {
    ASSERT_EQ(write(first, standard::controlChannelPrivilege, controlAccess), status::success);
  }

  static register_memory power_up() {
    gvcam::camera_setup setup;
    setup.description = "<xml/>";
    return gvcam::power_up_memory({"CAM", 0x0a000009, "", mac}, setup);
  }

  const register_memory initial = power_up();
  register_memory memory = initial;
  control_server server{memory, &initial};
  gvcam::camera_time now{1s};
  std::uint16_t id = 0;
};

TEST_F(control, one_client_writes_and_the_others_read) {
  EXPECT_EQ(write(second, features::width, 320), status::access_denied) << "nobody has control";
  take_control();
  EXPECT_EQ(write(first, features::width, 320), status::success);
  EXPECT_EQ(write(second, features::width, 160), status::access_denied);
  EXPECT_EQ(write(second, standard::controlChannelPrivilege, controlAccess), status::access_denied);
  EXPECT_EQ(write(second, standard::controlChannelPrivilege, 0), status::access_denied);
  EXPECT_EQ(read(second, features::width), 320U);
  EXPECT_EQ(read(second, standard::primaryApplicationIp), first.ip);

  write(first, standard::controlChannelPrivilege, gige_protocol::control_privilege::exclusive);
  EXPECT_EQ(sent_status(second, read_word(++id, features::width)), status::access_denied);
  EXPECT_EQ(read(first, features::width), 320U);
  EXPECT_EQ(read(second, standard::primaryApplicationPort), first.port) << "who has control";
}

TEST_F(control, the_stream_ends_and_settings_come_back_before_the_next_client_has_control) {
  for (const bool isReleased : {true, false}) {
    take_control();
    write(first, standard::heartbeatTimeout, 700);
    write(first, standard::streamPort, 4711);
    write(first, standard::userDefinedName, 0x4d796e61);
    EXPECT_TRUE(send(first, write_word(++id, features::acquisition, 1)).isStreamStarted);
    now += 600ms;
    read(first, standard::streamPort);
    now += 600ms;
    EXPECT_EQ(read(second, standard::streamPort), 4711U) << "any command of the first one is a heartbeat";
    now += isReleased ? 0ms : 101ms;
    const message end =
        isReleased ? write_word(++id, standard::controlChannelPrivilege, 0) : read_word(++id, 0);
    EXPECT_TRUE(send(isReleased ? first : second, end).isControlLost);
    EXPECT_EQ(memory.word(features::acquisition), 0U);
    EXPECT_EQ(memory.word(standard::streamPort), 0U);
    EXPECT_EQ(memory.word(standard::heartbeatTimeout), 3000U);
    EXPECT_EQ(memory.word(standard::userDefinedName), 0x4d796e61U) << "outlasts control";
  }
}

TEST_F(control, a_refusal_says_why) {
  take_control();
  const message read = read_word(111, 0);
  message action;  // a command that cameras do not have: ACTION
  action.put(read.view().first(2));
  action.put(std::uint16_t{0x0100});
  action.put(read.view().subspan(4));
  const struct {
    const char* what;
    message command;
    status expected;
  } cases[] = {
      {"read only", write_word(100, standard::streamChannelCount, 2), status::write_protect},
      {"the description", write_word(101, gvcam::descriptionAddress, 0), status::write_protect},
      {"between two words", write_word(102, features::width + 2, 320), status::bad_alignment},
      {"no register", write_word(103, 0x0700, 0), status::invalid_address},
      {"behind the memory", read_word(104, 0x7fff'fffc), status::invalid_address},
      {"the last address", read_word(105, 0xffff'fffc), status::invalid_address},
      {"part of a word", gige_protocol::make_read_memory(107, {0, 6}), status::bad_alignment},
      {"beyond the end", gige_protocol::make_read_memory(108, {gvcam::descriptionAddress, 12}),
       status::invalid_address},
      {"wider than the sensor", write_word(109, features::width, 1296), status::invalid_parameter},
      {"no line", write_word(110, features::height, 0), status::invalid_parameter},
      {"unknown", action, status::not_implemented},
      {"start", write_word(112, features::acquisition, 1), status::success},
      {"locked", write_word(113, features::width, 320), status::access_denied},
      {"not locked", write_word(114, features::gain, 0x40000000), status::success},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(sent_status(first, each.command), each.expected) << each.what;
  }
}

TEST_F(control, several_registers_are_read_and_written_up_to_the_first_that_fails) {
  take_control();
  const gige_protocol::register_write writes[] = {
      {features::offsetX, 8}, {features::sensorWidth, 8}, {features::offsetY, 8}};
  EXPECT_EQ(sent_status(first, gige_protocol::make_write_registers(50, writes)), status::write_protect);
  const std::array<std::uint32_t, 4> addresses = {features::offsetX, features::offsetY, 0x0700,
                                                  features::width};
  const message values = *send(second, gige_protocol::make_read_registers(51, addresses)).answer;
  EXPECT_EQ(status_of(values.view()), status::invalid_address);
  EXPECT_EQ(words_of(values.view()), (std::vector<std::uint32_t>{8, 0}));
}

// Catches a trigger that fires twice because its answer was lost.
TEST_F(control, a_repeated_command_is_answered_and_not_executed_again) {
  take_control();
  const message trigger = write_word(77, features::triggerSoftware, 1);
  const outcome once = send(first, trigger);
  const outcome again = send(first, trigger);
  EXPECT_EQ(std::pair(once.triggers, again.triggers), std::pair(1U, 0U));
  EXPECT_TRUE(std::ranges::equal(again.answer->view(), once.answer->view()));
  EXPECT_EQ(send(second, trigger).triggers, 0U);
  read(first, standard::version);
  EXPECT_EQ(send(first, trigger).triggers, 1U) << "another command came between";
  std::vector<std::uint8_t> silent(trigger.view().begin(), trigger.view().end());
  silent[1] = 0;  // wants no acknowledge
  EXPECT_EQ(server.handle(silent, first, now).triggers, 1U);
  EXPECT_FALSE(server.handle(silent, first, now).answer) << "repeated";
}

TEST_F(control, junk_neither_is_answered_nor_gives_a_second_client_control) {
  take_control();
  const message good = write_word(60, features::width, 320);
  for (std::size_t size = 0; size < good.view().size(); ++size) {
    EXPECT_FALSE(server.handle(good.view().first(size), first, now).answer) << size << " bytes";
  }
  EXPECT_EQ(memory.word(features::width), 1280U);
  std::mt19937 random(1);
  for (std::uint16_t count = 1; count <= 3000; ++count) {
    const message grab = write_word(count, standard::controlChannelPrivilege, controlAccess);
    std::vector<std::uint8_t> junk(grab.view().begin(), grab.view().end());
    junk[random() % junk.size()] = static_cast<std::uint8_t>(random());
    junk.resize(random() % 4 == 0 ? random() % 1500 : junk.size());
    server.handle(junk, second, now);
    ASSERT_EQ(memory.word(standard::primaryApplicationPort), first.port);
  }
}

TEST_F(control, force_ip_is_for_one_camera_that_nobody_controls) {
  const gige_protocol::forced_ip wanted{mac, 0x0a000009, 0xff000000, 0};
  EXPECT_EQ(send(second, gige_protocol::make_force_ip(40, wanted, true)).address, wanted);
  const message forAnother = gige_protocol::make_force_ip(41, {{2}, 0x0a000009, 0xff000000, 0}, true);
  EXPECT_EQ(send(second, forAnother).address, std::nullopt);
  EXPECT_EQ(sent_status(second, forAnother), status::no_message);
  take_control();
  EXPECT_EQ(sent_status(second, gige_protocol::make_force_ip(43, wanted, true)), status::access_denied);
}

TEST_F(control, registers_take_what_the_camera_can_do) {
  now = 5'000'000'123ns;
  take_control();
  const struct {
    std::uint32_t address, written, from, found;
  } steps[] = {
      {standard::heartbeatTimeout, 100, standard::heartbeatTimeout, 500},
      {standard::streamPacketSize, 1501, standard::streamPacketSize, 1500},
      {standard::streamPacketSize, 10, standard::streamPacketSize, 576},
      {standard::streamPacketSize, 0x4000'ffff, standard::streamPacketSize, 0x4000'0000 | 65532},
      {standard::gvspConfiguration, 0xffff'ffff, standard::gvspConfiguration, 0x4000'0000},
      {features::triggerSoftware, 1, features::triggerSoftware, 0},
      {standard::timestampControl, 2, standard::timestampHigh, 1},
      {standard::timestampControl, 0, standard::timestampLow, 5'000'000'123 - (std::int64_t{1} << 32)},
      {features::height, 64, features::payloadSize, 1280 * 64},
      {features::chunkEnable + 5 * 4, 1, features::payloadSize, 1280 * 64},
      {features::chunkModeActive, 1, features::payloadSize, 1280 * 64 + 8 + 16}};
  for (const auto& each : steps) {
    EXPECT_EQ(write(first, each.address, each.written), status::success);
    EXPECT_EQ(read(first, each.from), each.found) << std::hex << each.address;
  }
  const std::uint32_t fire = 4000 | gige_protocol::packet_size::fireTestPacket;
  EXPECT_TRUE(send(first, write_word(++id, standard::streamPacketSize, fire)).wantsTestPacket);
  EXPECT_EQ(read(first, standard::streamPacketSize), 4000U);
}

TEST_F(control, a_silent_client_keeps_the_others_out_until_it_lets_go) {
  take_control();
  server.set_occupied(true);
  EXPECT_EQ(write(first, features::width, 320), status::success) << "a client with control keeps it";
  write(first, standard::controlChannelPrivilege, 0);
  now += 1h;
  EXPECT_EQ(write(first, standard::controlChannelPrivilege, controlAccess), status::access_denied);
  server.set_occupied(false);
  take_control();
}

}  // namespace
}  // namespace gvcam_test
