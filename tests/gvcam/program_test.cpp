// The program with other programs: those of an independent library take its cameras for any camera.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/program.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using tests::program;
using tests::words;

words joined(words first, const words& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

class gvcam_program : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = fs::temp_directory_path() / "gvcam_test.XXXXXX";
    directory = mkdtemp(name.data());
  }
  void TearDown() override { fs::remove_all(directory); }

  // Runs a line of a shell in a network of its own with a camera that answers; gives what it said.
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
  const std::string said = beside_camera("--user-name Fritz",
                                         "arv-tool-0.8; arv-tool-0.8 -a 127.0.0.1 control DeviceUserID "
                                         "GainSelector=DigitalAll Gain=2 GainSelector=SensorAll "
                                         "Gain Width=160 PixelFormat=Mono10 PayloadSize ChunkModeActive=true "
                                         "ChunkSelector=Timestamp ChunkEnable=true "
                                         "PayloadSize; arv-tool-0.8 -a 127.0.0.1 control Width");
  EXPECT_THAT(said, HasSubstr("Emulated Cameras-gvcam-GV000001 (127.0.0.1)"));
  EXPECT_THAT(said, HasSubstr("DeviceUserID = Fritz\n"));
  EXPECT_THAT(said, HasSubstr("Gain = 1 min:1 max:16\n"));
  EXPECT_THAT(said, HasSubstr("PayloadSize = 76800 B"));
  EXPECT_THAT(said, HasSubstr("PayloadSize = 76824 B"));
  EXPECT_THAT(said.substr(said.find("PayloadSize = 76824")), HasSubstr("Width = 160 px")) << "it was reset";
}

TEST_F(gvcam_program, a_foreign_receiver_has_every_frame) {
  const struct {
    const char* what;
    const char* options;
    const char* receiver;
    std::vector<const char*> told;
  } cases[] = {
      {"as it is", "", "", {"n_failures             = 0\n", "gv packet size         = 1500 bytes"}},
      {"64-bit ids", "--ids extended", "-u FrameID", {"n_failures             = 0\n", "ChunkFrameID = 2\n"}},
      {"chunks of version 1",
       "--chunks standard",
       "-u ExposureTime",
       {"n_failures             = 0\n", "ChunkExposureTime = 5000\n"}},
      {"test packets",
       "",
       "-j always",
       {"n_failures             = 0\n", "gv packet size         = 9000 bytes"}},
      {"triggers", "", "-o 25", {"n_failures             = 0\n"}},
      {"disorder", "--fault 'reorder 0.1' --fault 'duplicate 0.1'", "", {"n_failures             = 0\n"}},
  };
  for (const auto& each : cases) {
    const std::string said =
        beside_camera(each.options, std::string("arv-camera-test-0.8 --duration 1 -a ") + each.receiver);
    for (const char* line : each.told) {
      EXPECT_THAT(said, HasSubstr(line)) << each.what;
    }
    EXPECT_THAT(said, testing::Not(HasSubstr("n_completed_buffers    = 0\n"))) << each.what;
  }
}

TEST_F(gvcam_program, a_foreign_receiver_asks_for_lost_packets_and_has_them) {
  const std::string said = beside_camera("--fault 'loss 0.1'", "arv-camera-test-0.8 --duration 2 -a");
  for (const char* line :
       {"n_completed_buffers    = 0\n", "n_resend_requests      = 0\n", "n_resent_packets       = 0\n"}) {
    EXPECT_THAT(said, testing::Not(HasSubstr(line)));
  }
}

TEST_F(gvcam_program, a_wrong_option_is_named_with_what_would_be_right) {
  const std::pair<words, const char*> cases[] = {
      {{"--sensor", "100x100"}, "the width in steps of 16"},
      {{"--serial", "ONE,ONE"}, "'ONE' must be 1 to 15 letters long and no other camera's"},
      {{"--address", "10.99.99.99"}, "'10.99.99.99' is no IPv4 address of this machine, those are 127.0.0.1"},
      {{"--user-name", "ONE,TWO"}, "at most one for each camera"},
      {{"--user-name", "a name that is too long"}, "at most 15 letters"},
      {{"--on-close", "forget"}, "--on-close"},
      {{"--xml", "/nowhere"}, "/nowhere"}};
  for (const auto& [options, complaint] : cases) {
    program wrong(directory / "wrong", joined({GVCAM}, options));
    EXPECT_EQ(wrong.wait(), 2);
    EXPECT_THAT(wrong.error(), HasSubstr(complaint));
  }
}

}  // namespace
