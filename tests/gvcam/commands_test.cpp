// Lines that tell a running program what goes wrong.
#include "platform/gvcam/commands.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using gvcam::camera;
using testing::HasSubstr;

class commands : public testing::Test {
 protected:
  commands() {
    for (const char* serial : {"ONE", "TWO"}) {
      cameras.push_back(
          std::make_unique<camera>(gvcam::camera_identity{serial, 0x7f000001, ""}, setup, scene));
    }
  }
  void obey(const std::string& line) {
    gvcam::obey(line, cameras, [this](const std::string& text) { told += text + "\n"; });
  }
  const gvcam::faults& of(std::size_t place) const { return cameras[place]->current_faults(); }

  gvcam::camera_setup setup;
  picture::scene scene{64, 64};
  gvcam::camera_list cameras;
  std::string told;
};

TEST_F(commands, are_for_all_cameras_or_for_one) {
  obey("loss 0.25 8");
  obey("TWO silent on");
  obey("  ");
  EXPECT_EQ(told, "ONE loss 0.25 8\nTWO loss 0.25 8\nTWO silent on\n");
  EXPECT_TRUE(of(0).link.loss == 0.25 && of(0).link.burst == 8 && !of(0).link.isSilent);
  EXPECT_TRUE(of(1).link.loss == 0.25 && of(1).link.burst == 8 && of(1).link.isSilent);
  obey("ONE loss 0");
  EXPECT_TRUE(of(0).link.loss == 0 && of(0).link.burst == 1);
}

TEST_F(commands, a_stall_is_about_a_register_the_description_or_all) {
  obey("stall 0xA010 1500");
  EXPECT_TRUE(of(0).control.stallFirst == 0xA010 && of(0).control.stallLast == 0xA013 &&
              !of(0).control.stallsAll);
  EXPECT_EQ(of(0).control.stall.count(), 1500);
  obey("stall description 20");
  EXPECT_EQ(of(0).control.stallFirst, gvcam::descriptionAddress);
  obey("stall all 20");
  EXPECT_TRUE(of(0).control.stallsAll);
}

TEST_F(commands, a_mistake_is_named_and_changes_nothing) {
  const std::pair<const char*, const char*> cases[] = {
      {"lose 0.1", "unknown command 'lose', known are loss, reorder"},
      {"loss", "'loss' takes RATIO [PACKETS]"},
      {"loss 0.1 2 3", "'loss' takes RATIO [PACKETS]"},
      {"loss 1.5", "'1.5' is no part from 0 to 1"},
      {"loss nan", "'nan' is no part from 0 to 1"},
      {"loss 0.1 65", "'65' is no number of packets from 1 to 64"},
      {"silent maybe", "'maybe' is neither on nor off"},
      {"die now", "'die' takes nothing"},
      {"stall gain 20", "'gain' is no register"},
      {"stall all -1", "'-1' is no time"},
      {"THREE loss 0.1", "unknown command 'THREE'"},
      {"ONE", "unknown command ''"}};
  for (const auto& [line, complaint] : cases) {
    try {
      obey(line);
      ADD_FAILURE() << line;
    } catch (const std::invalid_argument& error) {
      EXPECT_THAT(error.what(), HasSubstr(complaint)) << line;
    }
  }
  EXPECT_EQ(told, "");
  EXPECT_EQ(of(0).link.loss, 0);
}

}  // namespace
