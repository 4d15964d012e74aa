// Finding cameras and giving them addresses, on networks with other answers than theirs.
#include "platform/gige/control/discovery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "platform/gige/control/force_ip.h"
#include "tests/gige/control/scripted_camera.h"

namespace {

using namespace test;
using gige::find_cameras;
using gige::found_camera;
using gige::search;

constexpr std::uint32_t nearOne = 0x0a010001;  // ours on "near", of two subnets
constexpr std::uint32_t nearTwo = 0x0a020001;
constexpr std::uint32_t one = 0x0a010002;  // the cameras'
constexpr std::uint32_t two = 0x0a020002;
constexpr std::uint32_t foreign = 0x0a090009;

protocol::discovery_record record_of(std::uint32_t address, std::string_view serial) {
  protocol::discovery_record record;
  record.ip = address;
  record.serial = serial;
  protocol::store(std::span(record.mac), 2, address);
  return record;
}

std::vector<std::string> serials(const std::vector<found_camera>& found) {
  std::vector<std::string> all;
  all.reserve(found.size());
  for (const found_camera& each : found) {
    all.emplace_back(each.record.serial.view());
  }
  return all;
}

// Everything in the cameras' network listens through this one, and answers from sockets of its own.
class discovery : public testing::Test {
 protected:
  void SetUp() override {
    networks::instance().among_cameras([&] { network.emplace(INADDR_ANY); });
  }
  void TearDown() override { network.reset(); }
  void answer_searches() {
    network->follow([&](scripted_camera& self, const protocol::command& asked) {
      for (const auto& [from, record] : cameras) {
        self.answer(protocol::make_discovery_acknowledge(asked.id, record).view(), from);
      }
      return true;
    });
  }

  std::vector<std::pair<std::uint32_t, protocol::discovery_record>> cameras;  // by where they answer from
  std::optional<scripted_camera> network;
};

// Catches a subnet that is not asked, a camera that counts twice, and one that is no camera.
TEST_F(discovery, finds_the_cameras_of_every_subnet_once_and_says_which_are_out_of_reach) {
  auto named = record_of(two, "TWO");
  named.userName = std::string_view("\x1b[2Jred");
  cameras = {{two, named},
             {one, record_of(one, "ONE")},
             {foreign, record_of(foreign, "FOREIGN")},
             {one, record_of(0x0a010063, "FORGED")}};
  network->follow([&](scripted_camera& self, const protocol::command& asked) {
    const auto otherId = protocol::next_request_id(asked.id);
    self.answer(protocol::make_discovery_acknowledge(otherId, record_of(one, "STRAY")).view(), one);
    self.answer(
        protocol::make_acknowledge(protocol::acknowledge_code::discovery, asked.id, protocol::status::error));
    for (const auto& [from, record] : cameras) {
      self.answer(protocol::make_discovery_acknowledge(asked.id, record).view(), from);
    }
    return true;
  });
  const auto found = find_cameras({.patience = 1s});
  ASSERT_EQ(serials(found), (std::vector<std::string>{"ONE", "TWO", "FOREIGN"}));
  EXPECT_EQ(found[0].ownAddress, nearOne);
  EXPECT_EQ(found[1].ownAddress, nearTwo);
  EXPECT_EQ(found[1].interfaceName, "near");
  EXPECT_EQ(found[1].record.userName.view(), "?[2Jred");
  EXPECT_EQ(found[0].unreachable + found[1].unreachable, "");
  EXPECT_NE(found[2].unreachable.find("10.9.0.9 is not in the network of near 10."), std::string::npos);
  EXPECT_TRUE(find_cameras({.interfaces = {"lo"}, .patience = 1ms}).empty());
  network->follow({});
}

// Catches a search that waits though it has all that it was asked for, or ends with less.
TEST_F(discovery, ends_soon_after_all_who_were_named_have_answered) {
  cameras = {{one, record_of(one, "ONE")}, {two, record_of(two, "TWO")}};
  answer_searches();
  for (const search& each :
       {search{.addresses = {two}, .patience = 60s}, search{.preferred = {"TWO", "ONE"}, .patience = 60s}}) {
    EXPECT_LT(duration([&] { EXPECT_EQ(serials(find_cameras(each)).front(), "TWO"); }), 10s);
  }
}

// Catches junk and forged answers that keep a search from its end, or true cameras from its result.
TEST_F(discovery, ends_in_time_and_keeps_who_is_preferred_however_many_answer) {
  bool ended = false;
  std::vector<std::thread> flood;
  network->follow([&](scripted_camera& self, const protocol::command& asked) {
    flood.emplace_back([&, id = asked.id, to = self.asking] {
      for (std::uint32_t number = 0; !self.locked([&] { return ended; }); ++number) {
        const bool wanted = number > 2 * gige::mostCameras && number % 50 == 0;  // behind the forged
        auto record = record_of(one, wanted ? "WANTED" : number < 20 ? "ALSO" : "FORGED");
        protocol::store(std::span(record.mac), 0, wanted ? 0 : number);
        const auto datagram = protocol::make_discovery_acknowledge(id, record);
        self.send(datagram.view().first(datagram.size() - number % 2), to, one);
        std::this_thread::sleep_for(100us);
      }
    });
    return true;
  });
  const auto names = serials(find_cameras({.preferred = {"ALSO", "WANTED"}, .patience = 60s}));
  EXPECT_EQ(std::count(names.begin(), names.end(), "WANTED"), 1);
  EXPECT_LE(std::count(names.begin(), names.end(), "ALSO"), std::ptrdiff_t{gige::mostOfOneSerial});
  EXPECT_LE(names.size(), gige::mostOfOneSerial + 1 + gige::mostCameras);
  EXPECT_LT(duration([] { find_cameras({.preferred = {"NOBODY"}, .patience = 300ms}); }), 3s);
  network->locked([&] { ended = true; });
  network->follow({});
  for (auto& each : flood) {
    each.join();
  }
}

// Catches an address that is said to be taken and is not, and a refusal that is not told.
TEST_F(discovery, gives_a_camera_an_address_and_sees_that_it_has_it) {
  auto record = record_of(foreign, "FOREIGN");
  const protocol::forced_ip wanted{.mac = record.mac, .ip = one, .subnetMask = 0xffffff00};
  auto result = protocol::status::success;
  network->follow([&](scripted_camera& self, const protocol::command& asked) {
    if (asked.code == protocol::command_code::force_ip) {
      EXPECT_EQ(*protocol::parse_force_ip(asked.payload), wanted);
      self.answer(protocol::make_acknowledge(protocol::acknowledge_code::force_ip, asked.id, result));
      return true;
    }
    self.answer(protocol::make_discovery_acknowledge(asked.id, record).view(), record.ip);
    return true;
  });
  const auto force = [&] { gige::set_address(wanted, {"near"}); };
  EXPECT_EQ(raised<gige::not_answered>(force),
            "camera 00:00:0a:09:00:09, asked to take the address 10.1.0.2, keeps its address 10.9.0.9");
  network->locked([&] { record.ip = one; });
  EXPECT_NO_THROW(force());
  network->locked([&] {
    result = protocol::status::invalid_parameter;
    record.ip = foreign;
  });
  EXPECT_EQ(raised<gige::refused>(force),
            "camera 00:00:0a:09:00:09 refuses the address 10.1.0.2: invalid parameter");
  network->follow({});
}

}  // namespace
