// The program with other programs: Aravis finds, controls and receives its cameras like any others.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/program.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tests::program;

class gvcam_program : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = fs::temp_directory_path() / "gvcam_test.XXXXXX";
    directory = mkdtemp(name.data());
  }
  void TearDown() override { fs::remove_all(directory); }

  // What a line of a shell prints in a network of its own, with a camera that answers.
  std::string beside_camera(const std::string& options, const std::string& line) const {
    const std::string script =
        "set -e; ip link set lo mtu 9000 up; : > camera.out; " GVCAM " --sensor 320x240 --fps 50 " + options +
        " < /dev/null >> camera.out & for try in $(seq 200); do grep -q ' on 127' camera.out && "
        "break; sleep 0.05; done; " +
        line + "; kill %1; wait %1";
    const std::string namespaceOptions = geteuid() == 0 ? "-n" : "-rn";
    program shell(directory / "shell",
                  {"unshare", namespaceOptions, "bash", "-mc", "cd " + directory.string() + "; " + script});
    EXPECT_EQ(shell.wait(), 0) << shell.out() << shell.error();
    return shell.out();
  }

  fs::path directory;
};

TEST_F(gvcam_program, a_foreign_tool_finds_reads_and_sets_a_camera) {
  const std::string said = beside_camera("--user-name Fritz --mac 02:00:5e:10:00:01",
                                         "arv-tool-0.8; arv-tool-0.8 -a 127.0.0.1 control DeviceUserID "
                                         "GainSelector=DigitalAll Gain=2 GainSelector=SensorAll "
                                         "Gain Width=160 PixelFormat=Mono10 PayloadSize ChunkModeActive=true "
                                         "ChunkSelector=Timestamp ChunkEnable=true "
                                         "PayloadSize; arv-tool-0.8 -a 127.0.0.1 control Width R[0x000c]");
  for (const char* line :
       {"Emulated Cameras-gvcam-GV000001 (127.0.0.1)", "DeviceUserID = Fritz\n", "Gain = 1 min:1 max:16\n",
        "PayloadSize = 76800 B", "PayloadSize = 76824 B", "R[0x0000000c] = 0x5e100001"}) {
    EXPECT_THAT(said, HasSubstr(line));
  }
  EXPECT_THAT(said.substr(said.find("PayloadSize = 76824")), HasSubstr("Width = 160 px"))
      << "kept after the client left";
}

TEST_F(gvcam_program, a_foreign_receiver_has_every_frame) {
  const std::string none = "n_failures             = 0\n";
  const struct {
    const char *options, *receiver;
    testing::Matcher<std::string> said;
  } cases[] = {
      {"", "", HasSubstr(none)},
      {"--ids extended", "-u FrameID", AllOf(HasSubstr(none), HasSubstr("ChunkFrameID = 2\n"))},
      {"--chunks standard", "-u ExposureTime",
       AllOf(HasSubstr(none), HasSubstr("ChunkExposureTime = 5000\n"))},
      {"", "-j always", AllOf(HasSubstr(none), HasSubstr("gv packet size         = 9000 bytes"))},
      {"", "-o 25", HasSubstr(none)},
      {"--link-speed 1000", "", HasSubstr(none)},
      {"--fault 'reorder 0.1' --fault 'duplicate 0.1'", "", HasSubstr(none)},
      {"--fault 'loss 0.1'", "",
       AllOf(Not(HasSubstr("n_resend_requests      = 0\n")), Not(HasSubstr("n_resent_packets       = 0\n")))},
  };
  for (const auto& each : cases) {
    const std::string said =
        beside_camera(each.options, std::string("arv-camera-test-0.8 --duration 1 -a ") + each.receiver);
    EXPECT_THAT(said, each.said) << each.options << each.receiver;
    EXPECT_THAT(said, Not(HasSubstr("n_completed_buffers    = 0\n"))) << each.options << each.receiver;
  }
}

TEST_F(gvcam_program, a_wrong_option_is_named_with_what_would_be_right) {
  const struct {
    const char *option, *value, *complaint;
  } cases[] = {{"--sensor", "100x100", "the width in steps of 16"},
               {"--serial", "ONE,ONE", "'ONE' must be 1 to 15 letters long and no other camera's"},
               {"--address", "10.99.99.99",
                "'10.99.99.99' is not an IPv4 address of this machine, which are 127.0.0.1"},
               {"--user-name", "ONE,TWO", "at most one for each camera"},
               {"--user-name", "a name that is too long", "at most 15 letters"},
               {"--mac", "02:00:00:00:00:0g", "'02:00:00:00:00:0g' must be like 02:00:5e:10:00:01"},
               {"--mac", "03:00:00:00:00:01", "the first is even"},
               {"--mac", "02:00:00:00:00:01,02:00:00:00:00:01", "is another camera's"},
               {"--mac", "02:00:00:00:00:01,02:00:00:00:00:02", "one for each camera, 1 and not 2"},
               {"--on-close", "forget", "--on-close"},
               {"--xml", "/nowhere", "/nowhere"}};
  for (const auto& each : cases) {
    program wrong(directory / "wrong", {GVCAM, each.option, each.value});
    EXPECT_EQ(wrong.wait(), 2);
    EXPECT_THAT(wrong.error(), HasSubstr(each.complaint));
  }
}

}  // namespace
