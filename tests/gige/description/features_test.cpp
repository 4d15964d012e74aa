// The features of a camera that is some bytes in memory: what they present, and which commands they cost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <memory>

#include "platform/gige/description/camera_features.h"
#include "platform/log2/log_sink.h"
#include "tests/gige/description/described_camera.h"

namespace description_test {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

// An unsigned register of 32 bits. `place` is its address, or elements that say where it is.
std::string reg(const std::string& name, const std::string& place, const std::string& access = "RW") {
  return node("IntReg", name,
              (place[0] == '<' ? place : "<Address>" + place + "</Address>") +
                  "<Length>4</Length><AccessMode>" + access +
                  "</AccessMode><pPort>Device</pPort><Endianess>BigEndian</Endianess>");
}

// An enumeration with the entries 0, 1 and so on.
std::string choice(const std::string& name, const std::vector<std::string>& entries,
                   const std::string& rest) {
  std::string content;
  for (std::size_t at = 0; at < entries.size(); ++at) {
    content += node("EnumEntry", entries[at], "<Value>" + std::to_string(at) + "</Value>");
  }
  return node("Enumeration", name, content + rest);
}

const std::string zero = node("Integer", "Zero", "<Value>0</Value>");
const std::string width =
    node("Integer", "Width",
         "<pValue>Register</pValue><Min>16</Min><Max>64</Max><Inc>16</Inc><Unit>px</Unit>"
         "<pIsLocked>Lock</pIsLocked>") +
    reg("Register", "0x10") + reg("Lock", "0x14");

class described_features : public testing::Test {
 protected:
  void describe(const std::string& nodes, bool monitoring = false) {
    features_ = std::make_unique<gige::camera_features>(
        described(nodes), camera_,
        gige::camera_features::setup{.monitoring = monitoring, .now = [this] { return now_; }});
  }
  gev::feature& feature(const std::string& name) {
    gev::feature* const found = features_->find(name);
    return found != nullptr ? *found : throw std::runtime_error("no feature " + name);
  }
  // The texts of these features, each with a blank behind it.
  std::string texts(const std::vector<std::string>& names) {
    std::string all;
    for (const std::string& name : names) {
      gev::feature& of = feature(name);
      all += gev::format(of.kind(), of.entries(), gev::read(of, false, false)) + " ";
    }
    return all;
  }
  void write(const std::string& name, const std::string& value) {
    gev::write_text(feature(name), value, true);
  }
  // The kind and text of the exception that a write raises.
  std::string refusal(const std::string& name, const std::string& value) {
    try {
      write(name, value);
      return "";
    } catch (const GenICam::GenericException& error) {
      return error.what();
    }
  }

  memory_port camera_;
  std::chrono::steady_clock::time_point now_;
  std::unique_ptr<gige::camera_features> features_;
};

// ---- What is presented

TEST_F(described_features, present_each_kind_of_node_by_its_text) {
  describe(
      reg("Register", "0x10") + node("Integer", "Width", "<pValue>Register</pValue><Unit>px</Unit>") +
      node("Converter", "Tenfold",
           "<FormulaTo>FROM / 10</FormulaTo><FormulaFrom>TO * 10</FormulaFrom><pValue>Register</pValue>") +
      node("Boolean", "Flag", "<pValue>Register</pValue><OnValue>2</OnValue><OffValue>0</OffValue>") +
      choice("Choice", {"Zero", "One", "Two"}, "<pValue>Register</pValue>") +
      node("StringReg", "Text", "<Address>0x20</Address><Length>8</Length><pPort>Device</pPort>") +
      node("Command", "Start", "<CommandValue>1</CommandValue><pValue>Register</pValue>") +
      node("Category", "Root", "<pFeature>Width</pFeature>"));
  camera_.put(0x10, 2);
  camera_.memory[0x20] = 'a';
  EXPECT_EQ(texts({"Width", "Tenfold", "Flag", "Choice", "Text"}), "2 20 1 Two a ");
  EXPECT_EQ(feature("Width").unit(), "px");
  for (const char* name : {"Start", "Root", "Nothing"}) {
    EXPECT_EQ(features_->find(name), nullptr) << name;
  }
  EXPECT_TRUE(features_->execute("Start"));
  EXPECT_EQ(texts({"Width"}), "1 ");
  EXPECT_FALSE(features_->execute("Stop"));
}

TEST_F(described_features, have_a_category_and_a_purpose) {
  describe(
      node("Category", "Root", "<pFeature>Control</pFeature><pFeature>Control</pFeature>") +
      node("Category", "Control", "<pFeature>Gain</pFeature><pFeature>Root</pFeature>") +
      node("Float", "Gain", "<ToolTip>short</ToolTip><Value>1</Value>") +
      node("Float", "Hidden", "<ToolTip>short</ToolTip><Description>long</Description><Value>1</Value>"));
  EXPECT_EQ(feature("Gain").category() + " " + feature("Gain").description(), "Root/Control short");
  EXPECT_EQ(feature("Hidden").category() + " " + feature("Hidden").description(), " long");
}

// Catches a check that is left to ArvGc, which does not make it, and an exception of the wrong kind.
TEST_F(described_features, refuse_what_the_camera_cannot_do) {
  describe(width + reg("Offers", "0x18") + zero +
           node("Float", "Exposure", "<Value>1</Value><Min>1</Min><Max>9</Max>") +
           node("Float", "Free", "<Value>1</Value>") +
           node("Float", "Measured", "<ImposedAccessMode>RO</ImposedAccessMode><Value>1</Value>") +
           node("Integer", "Absent", "<Value>1</Value><pIsImplemented>Zero</pIsImplemented>") +
           node("Integer", "Away", "<Value>1</Value><pIsAvailable>Zero</pIsAvailable>") +
           choice("Mode", {"Off"},
                  node("EnumEntry", "Rare", "<Value>1</Value><pIsImplemented>Offers</pIsImplemented>") +
                      "<Value>0</Value>"));
  using text = const char*;
  for (const auto& [name, value, words] : std::vector<std::tuple<text, text, text>>{
           {"Width", "8", "OutOfRangeException: Width: value 8 is below the minimum 16"},
           {"Width", "80", "OutOfRangeException: Width: value 80 is above the maximum 64"},
           {"Width", "33", "OutOfRangeException: Width: value 33 is off the increment 16"},
           {"Exposure", "nan", "InvalidArgumentException: Exposure"},
           {"Measured", "2", "AccessException: Measured: value 2 refused, it is read only"},
           {"Absent", "2", "AccessException: Absent: value 2 refused, it is not implemented"},
           {"Away", "2", "AccessException: Away: value 2 refused, it is not available"},
           {"Mode", "Rare", "AccessException: Mode: entry Rare is not offered"},
           {"Mode", "Wild", "InvalidArgumentException: Mode: value 'Wild' is not one of"}}) {
    EXPECT_THAT(refusal(name, value), HasSubstr(words));
  }
  EXPECT_EQ(refusal("Width", "32") + refusal("Free", "-1e300"), "");
  camera_.put(0x18, 1);
  features_->forget_registers(0x18, 4);
  EXPECT_EQ(refusal("Mode", "Rare"), "");
  write("Lock", "1");
  EXPECT_THAT(refusal("Width", "16"), HasSubstr("is read only: locked by the camera"));
  describe(width, true);
  EXPECT_EQ(feature("Width").access(), GenApi::RO);
  EXPECT_THAT(refusal("Width", "16"), HasSubstr("the camera is open for monitoring only"));
}

// Catches a refusal that leaves no trace but the exception, which a caller may swallow, and a read that logs.
TEST_F(described_features, log_one_line_for_each_refused_write) {
  describe(width + choice("Mode", {"Off"}, "<Value>0</Value>"));
  std::string log;
  LogSetSink(
      [](void* to, const log_line* line) {
        *static_cast<std::string*>(to) += std::to_string(line->level) + " " + line->text + "\n";
      },
      &log);
  EXPECT_THROW(write("Width", "80"), GenICam::OutOfRangeException);
  EXPECT_THROW(write("Mode", "On"), GenICam::InvalidArgumentException);
  camera_.isSilent = true;
  EXPECT_THROW(gev::write(feature("Register"), std::int64_t{1}, false), GenICam::TimeoutException);
  EXPECT_THROW(texts({"Register"}), GenICam::TimeoutException);
  camera_.isSilent = false;
  write("Width", "32");
  LogSetSink(nullptr, nullptr);
  EXPECT_EQ(
      log,
      "2 fail: write Width (value:80, right:16 to 64 by 16 px, reason:Width: value 80 is above the maximum "
      "64 px)\n"
      "2 fail: write Mode (value:On, right:Off, reason:Mode: value 'On' is not one of its entries: Off)\n"
      "2 fail: write Register (value:1, right:unknown, reason:the camera is silent)\n");
}

// ---- Which registers are read again

// Catches a value that is kept too long, or read too often. The camera changes the register by itself.
TEST_F(described_features, are_cached_by_the_rules_of_the_description) {
  const std::string here = "<Address>0x10</Address>";
  describe(reg("Kept", here) + reg("Fresh", here + "<Cachable>NoCache</Cachable>") +
           reg("Polled", here + "<PollingTime>200</PollingTime>") + reg("Measured", here, "RO") +
           reg("Constant", here + "<Cachable>WriteThrough</Cachable>", "RO") +
           reg("Invalidated", here + "<pInvalidator>Exposure</pInvalidator>") + reg("Exposure", "0x30"));
  camera_.put(0x10, 1);
  EXPECT_EQ(texts({"Fresh", "Measured", "Polled", "Kept", "Constant", "Invalidated"}), "1 1 1 1 1 1 ");
  camera_.put(0x10, 2);
  now_ += 199ms;
  EXPECT_EQ(texts({"Kept", "Constant", "Invalidated", "Polled"}), "1 1 1 1 ");
  now_ += 1ms;
  EXPECT_EQ(texts({"Polled"}), "2 ");
  camera_.put(0x10, 3);
  EXPECT_EQ(texts({"Fresh", "Measured", "Kept", "Invalidated"}), "3 3 1 1 ");
  camera_.put(0x10, 4);
  write("Exposure", "1");
  EXPECT_EQ(texts({"Invalidated", "Kept"}), "4 4 ") << "they share the register";
  camera_.put(0x10, 5);
  EXPECT_EQ(gev::to_integer(feature("Kept").get(true)), 5) << "the cache was to be ignored";
}

// Catches a write that goes unnoticed because another node, or none, made it.
TEST_F(described_features, are_read_again_after_a_write_to_their_registers) {
  describe(reg("Here", "0x10") + reg("There", "<pAddress>Where</pAddress>") +
           node("Integer", "Where", "<Value>0x10</Value>") + node("Boolean", "Constant", "<Value>0</Value>") +
           reg("Invalidated", "<Address>0x20</Address><pInvalidator>Here</pInvalidator>"));
  EXPECT_EQ(texts({"Here", "Invalidated"}), "0 0 ");
  write("There", "1");
  EXPECT_EQ(texts({"Here"}), "1 ");
  const std::uint8_t two[] = {0, 0, 0, 2};
  camera_.put(0x20, 7);
  features_->registers().write(0x10, two);
  EXPECT_EQ(texts({"Here", "Invalidated"}), "2 7 ");
  camera_.put(0x10, 3);
  features_->forget_registers(0x12, 1);
  EXPECT_EQ(texts({"Here"}), "3 ");
  camera_.onWrite = [this](std::uint64_t) { camera_.put(0x10, 8); };
  write("Here", "9");
  write("Constant", "1");  // without a command
  EXPECT_EQ(texts({"Here"}), "8 ") << "the camera may round a number";
}

// Catches a selector that leaves the value of the entry before, where all entries share a register.
TEST_F(described_features, are_read_again_after_a_write_to_their_selector) {
  describe(node("Integer", "Selector", "<pValue>SelectorReg</pValue><pSelected>Gain</pSelected>") +
           reg("SelectorReg", "0x10") + node("Integer", "Gain", "<pValue>GainReg</pValue>") +
           reg("GainReg", "0x20"));
  camera_.onWrite = [this](std::uint64_t address) {
    if (address == 0x10) {
      camera_.put(0x20, 100 + camera_.memory[0x13]);
    }
  };
  for (const char* entry : {"1", "2"}) {
    write("Selector", entry);
    EXPECT_EQ(texts({"Gain"}), "10" + std::string(entry) + " ");
  }
  camera_.take();
  EXPECT_EQ(texts({"Gain"}) + camera_.take(), "102 ");
}

TEST_F(described_features, send_no_commands_while_their_nodes_are_made) {
  describe(reg("Offers", "0x18") +
           choice("Mode", {},
                  node("EnumEntry", "Rare", "<Value>1</Value><pIsImplemented>Offers</pIsImplemented>") +
                      "<Value>1</Value>"));
  struct : gev::node_owner {
    std::unique_lock<std::mutex> enter(const gev::feature_access&) override { return {}; }
    std::unique_lock<std::mutex> hold() override { return {}; }
  } open;
  gev::node_map nodes(open);
  features_->fill(nodes);
  EXPECT_EQ(camera_.take(), "");
  auto* const mode = dynamic_cast<GenApi::IEnumeration*>(nodes.GetNode("Mode"));
  ASSERT_NE(mode, nullptr);
  EXPECT_EQ(mode->GetEntryByName("Rare")->GetAccessMode(), GenApi::NI);
  EXPECT_EQ(camera_.take(), "read 18, ");
}

// ---- What it costs

// The features that a driver uses with each frame and when it sets a camera anew. `cachable` is declared for
// all registers.
std::string driven_camera(const std::string& cachable, bool selects) {
  const auto selector = [&](const std::string& name, const std::string& address,
                            const std::string& selected) {
    const std::string link = selects ? "<pSelected>" + selected + "</pSelected>" : "";
    return choice(name, {"First", "Second"}, "<pValue>" + name + "Reg</pValue>" + link) +
           reg(name + "Reg", "<Address>" + address + "</Address>" + cachable);
  };
  const auto behind = [](const std::string& index, const std::string& address) {
    return "<pIndex Offset='8'>" + index + "Reg</pIndex><Address>" + address + "</Address>";
  };
  return selector("TemperatureSelector", "0x10", "Temperature") + selector("GainSelector", "0x14", "Gain") +
         selector("LineSelector", "0x18", "LineSource") +
         reg("Temperature", behind("TemperatureSelector", "0x100"), "RO") +
         reg("Gain", behind("GainSelector", "0x200") + cachable) +
         choice("LineSource", {"Off", "On"}, "<pValue>LineSourceReg</pValue>") +
         reg("LineSourceReg", behind("LineSelector", "0x300") + cachable) +
         reg("ExposureTime", "<Address>0x20</Address>" + cachable);
}

// Each variant switches one rule off by its description, and so shows what the rule saves. Catches a rule
// that saves nothing, and a frame that costs more than its temperature.
TEST_F(described_features, cost_one_command_a_frame_by_the_rules_of_the_cache) {
  const auto frame = [this] {
    texts({"TemperatureSelector", "Temperature"});
    write("GainSelector", "First");
    texts({"Gain", "ExposureTime"});
  };
  const auto set = [&](const char* value, const char* source) {
    write("GainSelector", "First");
    write("Gain", value);
    write("ExposureTime", value);
    for (const char* line : {"First", "Second"}) {
      write("LineSelector", line);
      write("LineSource", source);
      texts({"LineSource"});
    }
    frame();
  };
  struct variant {
    const char* without;
    const char* cachable;
    bool selects;
    std::ptrdiff_t ofFrame;
    std::ptrdiff_t ofSettings;  // two, with a frame each
  };
  for (const variant& each :
       {variant{"(nothing)", "", true, 1, 18},
        {"registers are known until something may change them", "<Cachable>NoCache</Cachable>", true, 10, 64},
        {"a choice that was written is known", "<Cachable>WriteAround</Cachable>", true, 1, 27},
        {"selecting what is selected is no command", "", false, 2, 22}}) {
    describe(driven_camera(each.cachable, each.selects));
    frame();
    camera_.take();
    frame();
    const auto ofFrame = std::ranges::count(camera_.take(), ',');
    set("5", "On");
    set("6", "Off");
    const auto ofSettings = std::ranges::count(camera_.take(), ',');
    EXPECT_EQ(ofFrame, each.ofFrame) << "without: " << each.without;
    EXPECT_EQ(ofSettings, each.ofSettings) << "without: " << each.without;
    std::cout << "without: " << each.without << ": " << ofFrame << " commands a frame, " << ofSettings
              << " commands for two settings\n";
  }
}

}  // namespace
}  // namespace description_test
