// Finding cameras and giving them addresses, on networks where others answer, too.
#include "platform/gige/control/discovery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "platform/gige/control/force_ip.h"
#include "tests/gige/control/scripted_camera.h"

namespace {

using namespace test;
using gige::find_cameras;

constexpr std::uint32_t one = 0x0a010002;
constexpr std::uint32_t two = 0x0a020002;
constexpr std::uint32_t foreign = 0x0a090009;

protocol::discovery_record record_of(std::uint32_t address, std::string_view serial) {
  protocol::discovery_record record;
  record.ip = address;
  record.serial = serial;
  protocol::store(std::span(record.mac), 2, address);
  return record;
}

std::vector<std::string> serials(const std::vector<gige::found_camera>& found) {
  std::vector<std::string> all(found.size());
  std::ranges::transform(found, all.begin(), [](const auto& each) { return each.record.serial.view(); });
  return all;
}

// One socket gets the commands to all cameras, and answers from the address of each.
class discovery : public testing::Test {
 protected:
  void answer_searches() {
    network.follow([this](auto& self, const protocol::command& received) {
      for (const auto& [from, record] : cameras) {
        self.answer(protocol::make_discovery_acknowledge(received.id, record), from);
      }
      const auto otherId = protocol::next_request_id(received.id);
      self.answer(protocol::make_discovery_acknowledge(otherId, record_of(one, "STRAY")), one);
      return true;
    });
  }

  std::vector<std::pair<std::uint32_t, protocol::discovery_record>> cameras;  // with the address that answers
  scripted_camera network{INADDR_ANY};
};

// Catches a subnet that is not searched, a camera that counts twice, and an answer that is no camera's.
TEST_F(discovery, finds_the_cameras_of_every_subnet_once) {
  auto named = record_of(two, "TWO");
  named.userName = std::string_view("\x1b[2Jred");
  cameras = {{two, named},
             {one, record_of(one, "ONE")},
             {foreign, record_of(foreign, "FOREIGN")},
             {one, record_of(0x0a010063, "FORGED")}};
  answer_searches();
  const auto found = find_cameras({.patience = 1s});
  ASSERT_EQ(serials(found), (std::vector<std::string>{"ONE", "TWO", "FOREIGN"}));
  EXPECT_EQ(found[0].ownAddress, 0x0a010001U);
  EXPECT_EQ(found[1].ownAddress, 0x0a020001U);
  EXPECT_EQ(found[1].interfaceName, "lo");
  EXPECT_EQ(found[1].record.userName.view(), "?[2Jred");
  EXPECT_EQ(found[0].unreachable, "");
  EXPECT_NE(found[2].unreachable.find("10.9.0.9 is not in the network of lo 1"), std::string::npos);
  EXPECT_TRUE(find_cameras({.interfaces = {"none"}, .patience = 1ms}).empty());
}

// Catches a search that goes on though it has all that it searches for, or ends with less.
TEST_F(discovery, ends_soon_after_the_last_named_camera) {
  cameras = {{one, record_of(one, "ONE")}, {two, record_of(two, "TWO")}};
  answer_searches();
  expect_no_wait(
      [] { EXPECT_EQ(serials(find_cameras({.addresses = {two}, .patience = 60s})).front(), "TWO"); });
  expect_no_wait([] {
    EXPECT_EQ(serials(find_cameras({.preferred = {"TWO", "ONE"}, .patience = 60s})).front(), "TWO");
  });
}

// Catches forged and damaged answers that keep a search from its end, or true cameras from its result.
TEST_F(discovery, finds_preferred_cameras_in_a_flood_of_answers) {
  std::atomic<bool> isOver = false;
  std::vector<std::jthread> floods;
  network.follow([&](auto& self, const protocol::command& received) {
    floods.emplace_back([&, id = received.id, client = self.client] {
      for (std::uint32_t number = 0; !isOver; ++number) {
        const bool wanted = number > 2 * gige::mostCameras && number % 50 == 0;  // behind the forged
        auto record = record_of(one, wanted ? "WANTED" : number < 20 ? "ALSO" : "FORGED");
        protocol::store(std::span(record.mac), 0, wanted ? 0 : number);
        const auto datagram = protocol::make_discovery_acknowledge(id, record);
        self.send(datagram.view().first(datagram.size() - number % 2), client, one);
        std::this_thread::sleep_for(100us);
      }
    });
    return true;
  });
  const auto names = serials(find_cameras({.preferred = {"ALSO", "WANTED"}, .patience = 60s}));
  EXPECT_EQ(std::ranges::count(names, "WANTED"), 1);
  EXPECT_LE(std::ranges::count(names, "ALSO"), std::ptrdiff_t{gige::mostOfOneSerial});
  EXPECT_LE(names.size(), gige::mostOfOneSerial + 1 + gige::mostCameras);
  expect_no_wait([] { find_cameras({.preferred = {"NOBODY"}, .patience = 300ms}); });
  network.follow({});
  isOver = true;
}

// Catches an address that is reported as taken and is not, and a refusal without its reason.
TEST_F(discovery, gives_a_camera_an_address) {
  auto record = record_of(foreign, "FOREIGN");
  const protocol::forced_ip wanted{.mac = record.mac, .ip = one, .subnetMask = 0xffffff00};
  auto result = protocol::status::success;
  network.follow([&](auto& self, const protocol::command& received) {
    if (received.code == protocol::command_code::force_ip) {
      EXPECT_EQ(*protocol::parse_force_ip(received.payload), wanted);
      self.answer(protocol::make_acknowledge(protocol::acknowledge_code::force_ip, received.id, result));
    } else {
      self.answer(protocol::make_discovery_acknowledge(received.id, record), record.ip);
    }
    return true;
  });
  const auto force = [&] { gige::set_address(wanted, {"lo"}); };
  EXPECT_EQ(raised<gige::not_answered>(force),
            "camera 00:00:0a:09:00:09, asked to take the address 10.1.0.2, keeps its address 10.9.0.9");
  network.locked([&] { record.ip = one; });
  EXPECT_NO_THROW(force());
  network.locked([&] {
    result = protocol::status::invalid_parameter;
    record.ip = foreign;
  });
  EXPECT_EQ(raised<gige::refused>(force),
            "camera 00:00:0a:09:00:09 refuses the address 10.1.0.2: invalid parameter");
  network.follow({});
}

}  // namespace
