// Why a camera is not there.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "host/check/cameras.h"
#include "tests/program.h"

namespace {

using tests::has;

host::found_camera camera_at(const char* serial, std::uint32_t address) {
  host::found_camera camera;
  camera.serial = serial;
  camera.address = address;
  return camera;
}

TEST(cameras, tell_why_one_is_missing) {
  const std::vector<host::network_interface> net = {{"lo", 0x7F000001, 0xFF000000, true, true},
                                                    {"eth0", 0xC0A80001, 0xFFFFFF00, true, false}};
  const std::vector<host::network_interface> loopback = {net[0]};
  const std::vector<host::found_camera> one = {camera_at("S123", 0xC0A80002)};
  const std::vector<host::found_camera> nine(9, camera_at("T1", 0xC0A80003));
  auto ninth = nine;
  ninth[8] = one[0];
  auto controlled = one;
  controlled[0].unreachable = "192.168.0.9 controls it";
  struct {
    std::string serial;
    std::vector<host::found_camera> found;
    std::vector<host::network_interface> interfaces;
    std::string reason;  // part of it; empty: none
  } const cases[] = {
      {"S123", one, net, ""},
      {"", one, net, ""},
      {"s123 ", one, net, "did you mean 'S123'"},
      {"S123", controlled, net, "can't be opened: 192.168.0.9 controls it"},
      {"XYZXYZ", one, net, "others did: S123"},
      {"S123", one, loopback, "192.168.0.2, which is in the subnet of none"},
      {"S123", {}, net, "interface eth0: 192.168.0.1, mask 255.255.255.0, up"},
      {"S123", {}, loopback, "no interface but loopback is up"},
      {"S123", ninth, net, "as number 9; the driver looks at the first 8"},
  };
  for (const auto& each : cases) {
    const std::string reasons =
        fmt::format("{}", fmt::join(host::why_missing(each.serial, {each.found, each.interfaces, 8}), "\n"));
    EXPECT_EQ(reasons.empty(), each.reason.empty()) << reasons;
    EXPECT_TRUE(has(reasons, each.reason)) << reasons;
  }
}

}  // namespace
