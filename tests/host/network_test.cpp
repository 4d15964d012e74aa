// The built program with a camera that keeps its registers, as real ones do: gvcam, in a network of the
// test's own.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <cstdlib>

#include "tests/host/parts.h"
#include "tests/program.h"

namespace {

namespace fs = std::filesystem;
using tests::has;
using tests::program;
using tests::words;

constexpr double kEndLongest = 10;  // seconds; ten times what is promised, whatever else the machine does

class network : public testing::Test {
 protected:
  void SetUp() override {
    static const bool isAlone = unshare(CLONE_NEWNET) == 0 &&
                                std::system("ip link set lo up && ip address add 127.0.0.2/8 dev lo") == 0;
    ASSERT_TRUE(isAlone) << "there is no network for the test alone";
    setenv("GIGE_DISCOVERY_MS", "1000", 1);  // a busy machine answers a search late
    std::string name = fs::temp_directory_path() / "network_test.XXXXXX";
    directory = mkdtemp(name.data());
    std::ofstream(directory / "c.toml")
        << "[[camera]]\nserial = \"GV000001\"\nframe_rate_hz = 50\nwidth = 160\nheight = 120\n"
           "exposure_us = 5000\ngain_db = 0\n";
  }
  void TearDown() override { fs::remove_all(directory); }

  program host(words arguments) const {
    arguments.insert(arguments.begin(), MEDIAGRABBER);
    return {directory / "host", arguments};
  }
  fs::path directory;
};

// The driver switches the look-up table off as a run starts, and creates no device while it is off.
TEST_F(network, a_camera_can_be_used_again_after_each_kind_of_end) {
  const std::string prepared = "prepared: lutMode from Off to Active";
  const program there(directory / "gvcam", {GVCAM, "--sensor", "320x240"});
  ASSERT_TRUE(there.says(" on 127.0.0.1")) << there.error();
  for (const bool isFirst : {true, false}) {
    auto run = host({"run", directory / "c.toml", "-n", "5"});
    EXPECT_EQ(run.wait(), 0) << run.error();
    EXPECT_EQ(has(run.error(), prepared), !isFirst) << run.error();
  }
  auto check = host({"check", directory / "c.toml"});
  check.wait();  // a busy machine may fail it
  EXPECT_TRUE(has(check.out(), "passed   device created        " + prepared)) << check.out() << check.error();

  auto last = host({"run", directory / "c.toml", "-r", directory, "-f", "raw"});
  auto isRecorded = [&, before = std::size_t{0}]() mutable {
    const auto frames = [&] {
      return tests::count(tests::content(directory / "GV000001/frames.jsonl"), "\n");
    };
    const bool isMore = program::until([&] { return frames() > before + 5; });
    before = frames();
    return isMore;
  };
  ASSERT_TRUE(isRecorded()) << last.error();
  last.signal(SIGHUP);
  ASSERT_TRUE(last.says("acquisition starts", 2)) << last.error();
  ASSERT_TRUE(isRecorded()) << last.error();
  there.type("die");
  ASSERT_TRUE(last.says("the device failed (1 in a row)")) << last.error();
  there.type("back");
  ASSERT_TRUE(last.says("acquisition starts", 3)) << last.error();
  EXPECT_TRUE(isRecorded()) << last.error();
  EXPECT_LT(last.end(SIGTERM), kEndLongest);
  EXPECT_EQ(tests::count(last.error(), prepared), 2U)
      << "before the first run and after SIGHUP; a camera that lost power needs nothing: " << last.error();
}

TEST_F(network, an_address_is_given_by_serial_number_or_hardware_address) {
  const program there(directory / "gvcam", {GVCAM, "--sensor", "320x240"});
  ASSERT_TRUE(there.says(" on 127.0.0.1")) << there.error();
  auto absent = host({"address", "GV000002", "127.0.0.2/8"});
  EXPECT_EQ(absent.wait(), 1);
  const std::string list = absent.error();
  EXPECT_TRUE(has(list, "no camera with serial number or hardware address 'GV000002' answers\nSERIAL"))
      << list;
  const std::string mac = list.substr(list.find(" 02:") + 1, 17);
  for (const auto& [name, address] :
       {std::pair<std::string, std::string>{"GV000001", "127.0.0.2"}, {mac, "127.0.0.1"}}) {
    auto given = host({"address", name, address + "/8"});
    EXPECT_EQ(given.wait(), 0) << given.error();
    EXPECT_EQ(given.out(), fmt::format("camera '{}' has {}/8 until it is switched off\n", name, address));
    auto cameras = host({"cameras"});
    EXPECT_EQ(cameras.wait(), 0) << cameras.error();
    EXPECT_TRUE(has(cameras.out(), fmt::format("gvcam                    {} ", address))) << cameras.out();
  }
  auto refused = host({"address", "GV000001", "10.1.2.3/24"});  // which the machine does not have
  EXPECT_EQ(refused.wait(), 1);
  tests::expect_parts(refused.error(), {"camera 'GV000001' did not take 10.1.2.3/24: ",
                                        "refuses the address 10.1.2.3: invalid parameter"});
}

}  // namespace
