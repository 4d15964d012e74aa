// The control channel as a function: commands in, answers and what they lead to out. Time is an argument.
#include "platform/gvcam/control_server.h"

#include <gmock/gmock.h>

#include "platform/gvcam/frame_settings.h"
#include "tests/gvcam/commands.h"

namespace gvcam_test {
namespace {

using namespace std::chrono_literals;
using gvcam::camera_time;
using gvcam::control_server;
using gvcam::endpoint;
using gvcam::outcome;
using gvcam::register_memory;
using testing::ElementsAre;
namespace features = gvcam::features;

constexpr endpoint first{0x0a000001, 5000};
constexpr endpoint second{0x0a000001, 5001};  // another program on the same machine
constexpr std::uint32_t fireTestPacket = gige_protocol::packet_size::fireTestPacket;
constexpr std::uint32_t doNotFragment = gige_protocol::packet_size::doNotFragment;
constexpr gige_protocol::mac_address mac = {2, 0, 1, 2, 3, 4};

class control : public testing::Test {
 protected:
  control() {
    memory.set_word(standard::macHigh, 0x0200);
    memory.set_word(standard::macLow, 0x01020304);
    memory.set_word(standard::heartbeatTimeout, 3000);
    memory.set_word(features::sensorWidth, 640);
    memory.set_word(features::sensorHeight, 480);
    memory.set_word(features::width, 640);
    memory.set_word(features::height, 480);
    memory.set_word(features::pixelFormat, picture::pixelFormatMono8);
  }

  outcome say(const endpoint& from, const message& command) {
    return server.handle(command.view(), from, now);
  }
  status write(const endpoint& from, std::uint32_t address, std::uint32_t value) {
    const outcome result = say(from, write_word(++id, address, value));
    return result.answer ? status_of(*result.answer) : status::no_message;
  }
  std::uint32_t read(const endpoint& from, std::uint32_t address) {
    return word_of(say(from, read_word(++id, address)).answer.value_or(message()).view());
  }
  status read_status(const endpoint& from, std::uint32_t address) {
    return status_of(*say(from, read_word(++id, address)).answer);
  }
  void take_control() {
    ASSERT_EQ(write(first, standard::controlChannelPrivilege, controlAccess), status::success);
  }

  register_memory memory{"test.xml", "<xml/>"};
  control_server server{memory, nullptr};
  camera_time now{1s};
  std::uint16_t id = 0;
};

TEST_F(control, one_client_writes_and_the_others_read_who_it_is) {
  EXPECT_EQ(write(second, features::width, 320), status::access_denied) << "nobody has control";
  take_control();
  EXPECT_EQ(write(first, features::width, 320), status::success);
  EXPECT_EQ(write(second, features::width, 160), status::access_denied);
  EXPECT_EQ(write(second, standard::controlChannelPrivilege, controlAccess), status::access_denied);
  EXPECT_EQ(write(second, standard::controlChannelPrivilege, 0), status::access_denied);
  EXPECT_EQ(read(second, features::width), 320U);
  EXPECT_EQ(read(second, standard::primaryApplicationIp), first.ip);
  EXPECT_EQ(read(second, standard::primaryApplicationPort), first.port);

  EXPECT_EQ(write(first, standard::controlChannelPrivilege, gige_protocol::control_privilege::exclusive),
            status::success);
  EXPECT_EQ(read_status(second, features::width), status::access_denied);
  EXPECT_EQ(read_status(first, features::width), status::success);
  EXPECT_EQ(read(second, standard::primaryApplicationPort), first.port);
}

TEST_F(control, control_ends_with_the_heartbeat_and_the_stream_with_control) {
  for (const bool isReleased : {true, false}) {
    take_control();
    write(first, standard::heartbeatTimeout, 700);
    write(first, standard::streamPort, 4711);
    EXPECT_TRUE(say(first, write_word(++id, features::acquisition, 1)).isStreamStarted);
    now += 600ms;
    EXPECT_EQ(read(first, standard::streamPort), 4711U) << "any command is a heartbeat";
    now += 600ms;
    read(second, standard::controlChannelPrivilege);
    EXPECT_EQ(read(second, standard::controlChannelPrivilege), controlAccess) << "one of its own";
    if (isReleased) {
      EXPECT_TRUE(say(first, write_word(++id, standard::controlChannelPrivilege, 0)).isControlLost);
    } else {
      now += 101ms;
      EXPECT_TRUE(server.expire(now));
    }
    EXPECT_FALSE(server.expire(now));
    EXPECT_FALSE(memory.is_acquiring());
    EXPECT_EQ(read(second, standard::streamPort), 0U);
    EXPECT_EQ(read(second, standard::primaryApplicationPort), 0U);
  }
  EXPECT_EQ(write(second, standard::controlChannelPrivilege, controlAccess), status::success);
}

TEST_F(control, settings_stay_or_come_back_before_the_next_client_has_control) {
  const register_memory powerUp = memory;
  control_server resetting(memory, &powerUp);
  for (const bool isReset : {false, true}) {
    control_server& tried = isReset ? resetting : server;
    const auto tell = [&](const endpoint& from, std::uint32_t address, std::uint32_t value) {
      return *tried.handle(write_word(++id, address, value).view(), from, now).answer;
    };
    tell(first, standard::controlChannelPrivilege, controlAccess);
    tell(first, features::offsetX, 64);
    tell(first, standard::userDefinedName, 0x4d796e61);
    now += 10s;  // the heartbeat fails, which nobody looked at before the other client comes
    EXPECT_EQ(status_of(tell(second, standard::controlChannelPrivilege, controlAccess)), status::success);
    EXPECT_EQ(memory.word(features::offsetX), isReset ? 0U : 64U);
    EXPECT_EQ(memory.word(standard::userDefinedName), 0x4d796e61U);
    EXPECT_EQ(memory.word(standard::primaryApplicationPort), second.port);
    tell(second, standard::controlChannelPrivilege, 0);
  }
}

TEST_F(control, every_refusal_says_why) {
  take_control();
  const struct {
    const char* what;
    message command;
    status expected;
  } cases[] = {
      {"a register that is only read", write_word(100, standard::streamChannelCount, 2),
       status::write_protect},
      {"the description", write_word(101, gvcam::descriptionAddress, 0), status::write_protect},
      {"between two words", write_word(102, features::width + 2, 320), status::bad_alignment},
      {"no register", write_word(103, 0x0700, 0), status::invalid_address},
      {"behind the memory", read_word(104, 0x7fff'fffc), status::invalid_address},
      {"the last address", read_word(105, 0xffff'fffc), status::invalid_address},
      {"between two words", read_word(106, 0x0001), status::bad_alignment},
      {"part of a word", gige_protocol::make_read_memory(107, {0, 6}), status::bad_alignment},
      {"beyond the end", gige_protocol::make_read_memory(108, {gvcam::descriptionAddress, 12}),
       status::invalid_address},
      {"wider than the sensor", write_word(109, features::width, 656), status::invalid_parameter},
      {"no line", write_word(110, features::height, 0), status::invalid_parameter},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(status_of(*say(first, each.command).answer), each.expected) << each.what;
  }
  message action = read_word(111, 0);
  std::vector<std::uint8_t> bytes(action.view().begin(), action.view().end());
  bytes[3] = 0x00;  // ACTION
  bytes[2] = 0x01;
  EXPECT_EQ(status_of(*server.handle(bytes, first, now).answer), status::not_implemented);

  write(first, features::acquisition, 1);
  EXPECT_EQ(write(first, features::width, 320), status::access_denied);
  EXPECT_EQ(write(first, features::gain, 0x40000000), status::success);
  write(first, features::acquisition, 0);
  EXPECT_EQ(write(first, features::width, 320), status::success);
}

TEST_F(control, several_registers_are_done_up_to_the_first_that_fails) {
  take_control();
  const std::array writes = {gige_protocol::register_write{features::offsetX, 8},
                             gige_protocol::register_write{features::sensorWidth, 8},
                             gige_protocol::register_write{features::offsetY, 8}};
  const message written = *say(first, gige_protocol::make_write_registers(50, writes)).answer;
  EXPECT_EQ(status_of(written), status::write_protect);
  EXPECT_EQ(*gige_protocol::parse_written(gige_protocol::parse_acknowledge(written.view())->payload), 1);
  const std::array<std::uint32_t, 4> addresses = {features::offsetX, features::offsetY, 0x0700,
                                                  features::width};
  const message values = *say(second, gige_protocol::make_read_registers(51, addresses)).answer;
  EXPECT_EQ(status_of(values), status::invalid_address);
  const auto words =
      *gige_protocol::parse_register_values(gige_protocol::parse_acknowledge(values.view())->payload);
  ASSERT_EQ(words.size(), 2U);
  EXPECT_TRUE(words[0] == 8 && words[1] == 0);
}

// A client says it again when the answer was lost.
TEST_F(control, a_command_that_comes_again_is_answered_and_not_done_again) {
  take_control();
  const message shoot = write_word(77, features::triggerSoftware, 1);
  const outcome once = say(first, shoot);
  const outcome again = say(first, shoot);
  EXPECT_EQ(once.triggers, 1U);
  EXPECT_EQ(again.triggers, 0U);
  EXPECT_TRUE(std::ranges::equal(again.answer->view(), once.answer->view()));
  EXPECT_EQ(say(second, shoot).triggers, 0U);
  read(first, standard::version);
  EXPECT_EQ(say(first, shoot).triggers, 1U) << "it is another one after another command";
}

TEST_F(control, junk_is_not_answered_and_changes_nothing) {
  take_control();
  const message good = write_word(60, features::width, 320);
  const gige_protocol::byte_view bytes = good.view();
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(server.handle(bytes.first(size), first, now).answer) << size << " bytes";
  }
  std::vector<std::uint8_t> spoiled(bytes.begin(), bytes.end());
  spoiled[0] = 0x43;
  EXPECT_FALSE(server.handle(spoiled, first, now).answer);
  EXPECT_EQ(memory.word(features::width), 640U);
  spoiled[0] = 0x42;
  spoiled[1] = 0;  // no acknowledge is wanted
  EXPECT_FALSE(server.handle(spoiled, first, now).answer);
  EXPECT_FALSE(server.handle(spoiled, first, now).answer) << "nor when it comes again";
  EXPECT_EQ(memory.word(features::width), 320U);
}

TEST_F(control, force_ip_is_for_one_camera_that_nobody_controls) {
  const gige_protocol::forced_ip wanted{mac, 0x0a000009, 0xff000000, 0};
  gige_protocol::forced_ip another = wanted;
  another.mac[5] = 5;
  EXPECT_EQ(say(second, gige_protocol::make_force_ip(40, wanted, true)).address, wanted);
  const outcome ofAnother = say(second, gige_protocol::make_force_ip(41, another, true));
  EXPECT_TRUE(!ofAnother.address && !ofAnother.answer);
  take_control();
  const outcome denied = say(second, gige_protocol::make_force_ip(42, wanted, true));
  EXPECT_FALSE(denied.address);
  EXPECT_EQ(status_of(*denied.answer), status::access_denied);
}

TEST_F(control, registers_take_what_the_camera_can_do) {
  take_control();
  const struct {
    std::uint32_t address, written, found;
  } cases[] = {
      {standard::heartbeatTimeout, 100, 500},
      {standard::streamPacketSize, 1501, 1500},
      {standard::streamPacketSize, 10, 576},
      {standard::streamPacketSize, 0xffff | doNotFragment, 65532 | doNotFragment},
      {standard::gvspConfiguration, 0xffff'ffff, gige_protocol::gvsp_configuration::extendedIds},
      {standard::streamConfiguration, 0xffff'ffff, gige_protocol::stream_options::extendedChunks},
      {features::triggerSoftware, 1, 0},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(write(first, each.address, each.written), status::success);
    EXPECT_EQ(read(first, each.address), each.found) << std::hex << each.address;
  }
  EXPECT_TRUE(
      say(first, write_word(++id, standard::streamPacketSize, 4000 | fireTestPacket)).wantsTestPacket);
  EXPECT_EQ(read(first, standard::streamPacketSize), 4000U);
  now = 5'000'000'123ns;
  take_control();
  write(first, standard::timestampControl, gige_protocol::timestamp_control::latch);
  EXPECT_EQ(std::uint64_t{read(first, standard::timestampHigh)} << 32U | read(first, standard::timestampLow),
            5'000'000'123U);
}

TEST_F(control, the_payload_size_follows_what_a_frame_carries) {
  take_control();
  const struct {
    std::uint32_t address, value, size;
  } steps[] = {{features::width, 64, 64 * 480},
               {features::height, 64, 4096},
               {features::pixelFormat, picture::pixelFormatMono10, 8192},
               {features::chunkEnable + 5 * 4, 1, 8192},
               {features::chunkModeActive, 1, 8192 + 8 + 16},
               {features::chunkEnable, 1, 8192 + 8 + 16 + 12},
               {features::chunkModeActive, 0, 8192}};
  for (const auto& each : steps) {
    write(first, each.address, each.value);
    EXPECT_EQ(read(first, features::payloadSize), each.size) << std::hex << each.address;
  }
}

TEST_F(control, a_silent_client_keeps_the_others_out_until_it_is_told_to_go) {
  take_control();
  server.set_occupied(true);
  EXPECT_EQ(write(first, features::width, 320), status::success) << "who has control keeps it";
  write(first, standard::controlChannelPrivilege, 0);
  now += 1h;
  EXPECT_EQ(write(first, standard::controlChannelPrivilege, controlAccess), status::access_denied);
  server.set_occupied(false);
  take_control();
}

}  // namespace
}  // namespace gvcam_test
