// Lines that make faults in a running program.
#include "platform/gvcam/fault_commands.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using gvcam::emulated_camera;
using testing::HasSubstr;

class fault_commands : public testing::Test {
 protected:
  fault_commands() {
    for (const char* serial : {"ONE", "TWO"}) {
      cameras.push_back(
          std::make_unique<emulated_camera>(gvcam::camera_identity{serial, 0x7f000001, ""}, setup, scene));
    }
  }
  void execute(const std::string& line) {
    gvcam::execute_command(line, cameras, [this](const std::string& text) { reported += text + "\n"; });
  }
  const gvcam::impairments& link(std::size_t place) const { return cameras[place]->current_faults().link; }

  gvcam::camera_setup setup;
  picture::scene scene{64, 64};
  gvcam::camera_list cameras;
  std::string reported;
};

TEST_F(fault_commands, are_for_all_cameras_or_for_one) {
  for (const char* line : {"loss 0.25 8", "TWO silent on", "ONE loss 0", "  "}) {
    execute(line);
  }
  EXPECT_EQ(reported, "ONE loss 0.25 8\nTWO loss 0.25 8\nTWO silent on\nONE loss 0\n");
  EXPECT_EQ(link(0).loss, 0);
  EXPECT_EQ(link(1).loss, 0.25);
  EXPECT_EQ(link(1).burst, 8U);
  EXPECT_FALSE(link(0).isSilent);
  EXPECT_TRUE(link(1).isSilent);
}

TEST_F(fault_commands, a_mistake_is_named_and_changes_nothing) {
  const std::pair<const char*, const char*> cases[] = {
      {"lose 0.1", "unknown command 'lose', known are loss, reorder"},
      {"loss 1.5", "'1.5' is not a ratio from 0 to 1"},
      {"loss nan", "'nan' is not a ratio"},
      {"loss 0.1 65", "'65' is not a number of packets from 1 to 64"},
      {"silent maybe", "'maybe' is neither on nor off"},
      {"die now", "'die' takes nothing"},
      {"stall gain 20", "'gain' is not a register"},
      {"stall all -1", "'-1' is not a time"},
      {"THREE loss 0.1", "unknown command 'THREE'"},
      {"ONE", "unknown command ''"}};
  for (const auto& [line, complaint] : cases) {
    const auto executing = [&, text = line] { execute(text); };
    EXPECT_THAT(executing, testing::ThrowsMessage<std::invalid_argument>(HasSubstr(complaint)));
  }
  EXPECT_EQ(reported, "");
  EXPECT_EQ(link(0).loss, 0);
}

}  // namespace
