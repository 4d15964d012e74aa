// The features of a camera that is some bytes in memory: what they present, and which commands they cost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <string>

#include "platform/gige/description/camera_features.h"
#include "platform/log2/log_sink.h"
#include "tests/gige/description/memory_port.h"

namespace description_test {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

std::string described(const std::string& nodes) {
  return "<RegisterDescription SchemaMajorVersion='1' SchemaMinorVersion='1' SchemaSubMinorVersion='0'>" +
         nodes + "<Port Name='Device'/></RegisterDescription>";
}

// An unsigned register of 32 bits; `rest` says where it is, and what else there is to say.
std::string reg(const std::string& name, const std::string& rest, const std::string& access = "RW") {
  return "<IntReg Name='" + name + "'><Length>4</Length><AccessMode>" + access +
         "</AccessMode><pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>" + rest +
         "</IntReg>";
}

std::string at(const std::string& address) {
  return "<Address>" + address + "</Address>";
}

class Features : public testing::Test {
 protected:
  void describe(const std::string& nodes, bool monitoring = false) {
    features_ = std::make_unique<gige::camera_features>(
        described(nodes), camera_,
        gige::camera_features::setup{.monitoring = monitoring, .now = [this] { return now_; }});
  }
  gev::feature& feature(const std::string& name) {
    gev::feature* const found = features_->find(name);
    if (found == nullptr) {
      throw std::runtime_error("no feature " + name);
    }
    return *found;
  }
  std::string text(const std::string& name) {
    gev::feature& of = feature(name);
    const gev::value value = gev::read(of, false, false);
    return gev::format(of.kind(), of.entries(), value);
  }
  void write(const std::string& name, const std::string& value) {
    gev::feature& to = feature(name);
    gev::write(to, gev::parse(name, to.kind(), to.entries(), value), true);
  }
  // What the exception says, with its kind.
  std::string refusal(const std::string& name, const std::string& value) {
    try {
      write(name, value);
      return "";
    } catch (const GenICam::GenericException& error) {
      return error.what();
    }
  }
  std::string commands_of_reading(const std::string& name) {
    camera_.take();
    text(name);
    return camera_.take();
  }

  memory_port camera_;
  std::chrono::steady_clock::time_point now_;
  std::unique_ptr<gige::camera_features> features_;
};

// ---- What is presented

TEST_F(Features, present_each_kind_of_node_by_its_text) {
  describe(
      reg("Register", at("0x10")) +
      "<Integer Name='Width'><pValue>Register</pValue><Unit>px</Unit></Integer>" +
      "<Converter Name='Tenfold'><FormulaTo>FROM / 10</FormulaTo><FormulaFrom>TO * 10</FormulaFrom>" +
      "<pValue>Register</pValue></Converter>" +
      "<Boolean Name='Flag'><pValue>Register</pValue><OnValue>7</OnValue><OffValue>0</OffValue></Boolean>" +
      "<Enumeration Name='Choice'><EnumEntry Name='Seven'><Value>7</Value></EnumEntry>" +
      "<EnumEntry Name='Zero'><Value>0</Value></EnumEntry><pValue>Register</pValue></Enumeration>" +
      "<StringReg Name='Text'><Address>0x20</Address><Length>8</Length><AccessMode>RW</AccessMode>" +
      "<pPort>Device</pPort></StringReg><Command Name='Start'><CommandValue>1</CommandValue>" +
      "<pValue>Register</pValue></Command><Category Name='Root'><pFeature>Width</pFeature></Category>");
  camera_.put(0x10, 7);
  camera_.memory[0x20] = 'a';
  EXPECT_EQ(text("Width"), "7");
  EXPECT_EQ(text("Tenfold"), "70");
  EXPECT_EQ(text("Flag"), "1");
  EXPECT_EQ(text("Choice"), "Seven");
  EXPECT_EQ(text("Text"), "a");
  EXPECT_EQ(feature("Width").unit(), "px");
  EXPECT_EQ(features_->find("Start"), nullptr);
  EXPECT_EQ(features_->find("Root"), nullptr);
  EXPECT_EQ(features_->find("Nothing"), nullptr);
  EXPECT_TRUE(features_->execute("Start"));
  EXPECT_EQ(text("Width"), "1");
  EXPECT_FALSE(features_->execute("Stop"));
}

TEST_F(Features, tell_categories_and_purpose) {
  describe(
      "<Category Name='Root'><pFeature>Control</pFeature><pFeature>Control</pFeature></Category>"
      "<Category Name='Control'><pFeature>Gain</pFeature><pFeature>Root</pFeature></Category>"
      "<Float Name='Gain'><ToolTip>short</ToolTip><Value>1</Value></Float>"
      "<Float Name='Hidden'><ToolTip>short</ToolTip><Description>long</Description><Value>1</Value></Float>");
  EXPECT_EQ(feature("Gain").category(), "Root/Control");
  EXPECT_EQ(feature("Gain").description(), "short");
  EXPECT_EQ(feature("Hidden").category(), "");
  EXPECT_EQ(feature("Hidden").description(), "long");
}

// Catches a check that is left to ArvGc, which does not make it, and an exception of the wrong kind.
TEST_F(Features, refuse_what_the_camera_cannot_do) {
  describe(
      reg("Register", at("0x10")) + reg("Locks", at("0x14")) + reg("Offers", at("0x18")) +
      "<Integer Name='Width'><pValue>Register</pValue><Min>16</Min><Max>64</Max><Inc>16</Inc>"
      "<pIsLocked>Locks</pIsLocked></Integer>"
      "<Float Name='Exposure'><Value>1</Value><Min>1</Min><Max>9</Max><Unit>us</Unit></Float>"
      "<Float Name='Free'><Value>1</Value></Float>"
      "<Float Name='Measured'><ImposedAccessMode>RO</ImposedAccessMode><Value>1</Value></Float>"
      "<Integer Name='Absent'><Value>1</Value><pIsImplemented>Zero</pIsImplemented></Integer>"
      "<Integer Name='Away'><Value>1</Value><pIsAvailable>Zero</pIsAvailable></Integer>"
      "<Integer Name='Zero'><Value>0</Value></Integer>"
      "<Enumeration Name='Mode'><EnumEntry Name='Off'><Value>0</Value></EnumEntry><EnumEntry Name='Rare'>"
      "<Value>1</Value><pIsImplemented>Offers</pIsImplemented></EnumEntry><Value>0</Value></Enumeration>");
  struct refused {
    const char* feature;
    const char* value;
    const char* words;
  };
  for (const refused& each :
       {refused{"Width", "8", "OutOfRangeException: Width: value 8 is below the minimum 16"},
        {"Width", "80", "OutOfRangeException: Width: value 80 is above the maximum 64"},
        {"Width", "33", "OutOfRangeException: Width: value 33 is off the increment 16"},
        {"Exposure", "1e9", "OutOfRangeException: Exposure: value 1000000000 is above"},
        {"Exposure", "nan", "InvalidArgumentException: Exposure"},
        {"Measured", "2", "AccessException: Measured: value 2 refused, it is read only"},
        {"Absent", "2", "AccessException: Absent: value 2 refused, it is not implemented"},
        {"Away", "2", "AccessException: Away: value 2 refused, it is not available"},
        {"Mode", "Rare", "AccessException: Mode: entry Rare is not offered"},
        {"Mode", "Wild", "InvalidArgumentException: Mode: value 'Wild' is not one of"}}) {
    EXPECT_THAT(refusal(each.feature, each.value), HasSubstr(each.words));
  }
  EXPECT_EQ(refusal("Width", "32") + refusal("Free", "-1e300"), "");
  camera_.put(0x18, 1);
  features_->forget_registers(0x18, 4);
  EXPECT_EQ(refusal("Mode", "Rare"), "");
  write("Locks", "1");
  EXPECT_THAT(refusal("Width", "16"), HasSubstr("is read only: locked by the camera"));
}

// Catches a refusal that leaves no trace but the exception, which a caller may swallow, and a read that logs.
TEST_F(Features, log_one_line_for_each_refused_write) {
  describe(
      "<Integer "
      "Name='Width'><Value>16</Value><Min>16</Min><Max>64</Max><Inc>16</Inc><Unit>px</Unit></Integer>"
      "<Enumeration Name='Mode'><EnumEntry Name='Off'><Value>0</Value></EnumEntry><Value>0</Value>"
      "</Enumeration><Integer Name='Away'><Value>1</Value><pIsAvailable>Zero</pIsAvailable></Integer>"
      "<Integer Name='Zero'><Value>0</Value></Integer>" +
      reg("Register", at("0x10")));
  std::string logged;
  LogSetSink(
      [](void* to, const log_line* line) {
        *static_cast<std::string*>(to) += std::to_string(line->level) + " " + line->text + "\n";
      },
      &logged);
  EXPECT_THROW(gev::write(feature("Width"), std::int64_t{80}, true), GenICam::OutOfRangeException);
  EXPECT_THROW(gev::write_text(feature("Mode"), "On", true), GenICam::InvalidArgumentException);
  EXPECT_THROW(gev::read(feature("Away"), false, false), GenICam::AccessException);
  camera_.silent = true;
  EXPECT_THROW(gev::write(feature("Register"), std::int64_t{1}, true), GenICam::TimeoutException);
  gev::write(feature("Width"), std::int64_t{32}, true);
  LogSetSink(nullptr, nullptr);
  EXPECT_EQ(
      logged,
      "2 fail: write Width (value:80, right:16 to 64 by 16 px, reason:Width: value 80 is above the maximum "
      "64 "
      "px)\n"
      "2 fail: write Mode (value:On, right:Off, reason:Mode: value 'On' is not one of its entries: Off)\n"
      "2 fail: write Register (value:1, right:unknown, reason:the camera is silent)\n");
}

TEST_F(Features, are_read_only_to_who_only_watches) {
  describe(reg("Width", at("0x10")), true);
  EXPECT_EQ(feature("Width").access(), GenApi::RO);
  EXPECT_THAT(refusal("Width", "1"), HasSubstr("the camera is open for monitoring only"));
}

TEST_F(Features, raise_what_the_port_raised) {
  describe(reg("Width", at("0x10")));
  camera_.silent = true;
  EXPECT_THROW(text("Width"), GenICam::TimeoutException);
  EXPECT_THROW(feature("Width").set(std::int64_t{1}), GenICam::TimeoutException);
  camera_.silent = false;
  EXPECT_EQ(text("Width"), "0");
}

// ---- What is remembered

// Catches a value that is kept where it must not be, or asked for where it need not be. The camera changes
// the register behind our back.
TEST_F(Features, are_remembered_by_the_rules_of_the_description) {
  describe(reg("Kept", at("0x10")) + reg("Fresh", at("0x10") + "<Cachable>NoCache</Cachable>") +
           reg("Polled", at("0x10") + "<PollingTime>200</PollingTime>") + reg("Measured", at("0x10"), "RO") +
           reg("Constant", at("0x10") + "<Cachable>WriteThrough</Cachable>", "RO") +
           reg("Invalidated", at("0x10") + "<pInvalidator>Exposure</pInvalidator>") +
           reg("Exposure", at("0x30")));
  const auto values = [this] {
    std::string all;
    for (const char* name : {"Fresh", "Measured", "Polled", "Kept", "Constant", "Invalidated"}) {
      all += text(name) + " ";
    }
    return all;
  };
  camera_.put(0x10, 1);
  EXPECT_EQ(values(), "1 1 1 1 1 1 ");
  camera_.put(0x10, 2);
  EXPECT_EQ(text("Kept") + text("Constant") + text("Invalidated") + text("Polled"), "1111");
  now_ += 199ms;
  EXPECT_EQ(text("Polled"), "1");
  now_ += 1ms;
  EXPECT_EQ(text("Polled"), "2");
  camera_.put(0x10, 3);
  EXPECT_EQ(text("Fresh") + text("Measured"), "33");
  EXPECT_EQ(text("Kept") + text("Invalidated"), "11");
  camera_.put(0x10, 4);
  write("Exposure", "1");
  EXPECT_EQ(text("Invalidated"), "4");
  EXPECT_EQ(text("Kept"), "4") << "one register, which was read again";
  camera_.put(0x10, 5);
  EXPECT_EQ(gev::to_integer(feature("Kept").get(true)), 5) << "the cache was to be ignored";
}

// Catches a write that goes unnoticed since another node, or none, made it.
TEST_F(Features, are_read_again_where_their_registers_were_written) {
  describe(reg("Here", at("0x10")) + reg("There", "<pAddress>Where</pAddress>") +
           "<Integer Name='Where'><Value>0x10</Value></Integer>" +
           reg("Invalidated", at("0x20") + "<pInvalidator>Here</pInvalidator>"));
  EXPECT_EQ(text("Here") + text("Invalidated"), "00");
  write("There", "1");
  EXPECT_EQ(text("Here"), "1");
  const std::uint8_t two[] = {0, 0, 0, 2};
  camera_.put(0x20, 7);
  features_->registers().write(0x10, two);
  EXPECT_EQ(text("Here") + text("Invalidated"), "27");
  camera_.put(0x10, 3);
  features_->forget_registers(0x12, 1);
  EXPECT_EQ(text("Here"), "3");
  camera_.onWrite = [this](std::uint64_t) { camera_.put(0x10, 8); };
  write("Here", "9");
  EXPECT_EQ(text("Here"), "8") << "what the camera makes of a number has to be asked";
}

// Catches a selector that leaves the values of the entry before, where all entries share a register.
TEST_F(Features, are_read_again_when_their_selector_was_written) {
  describe("<Integer Name='Selector'><pValue>SelectorReg</pValue><pSelected>Gain</pSelected></Integer>" +
           reg("SelectorReg", at("0x10")) + "<Integer Name='Gain'><pValue>GainReg</pValue></Integer>" +
           reg("GainReg", at("0x20")));
  camera_.onWrite = [this](std::uint64_t address) {
    if (address == 0x10) {
      camera_.put(0x20, 100 + camera_.memory[0x13]);
    }
  };
  for (const char* entry : {"1", "2"}) {
    write("Selector", entry);
    EXPECT_EQ(text("Gain"), "10" + std::string(entry));
  }
  EXPECT_EQ(commands_of_reading("Gain"), "");
}

TEST_F(Features, ask_nothing_of_the_camera_while_they_are_made) {
  describe(reg("Offers", at("0x18")) +
           "<Enumeration Name='Mode'><EnumEntry Name='Rare'><Value>1</Value>"
           "<pIsImplemented>Offers</pIsImplemented></EnumEntry><Value>1</Value></Enumeration>");
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
  EXPECT_EQ(camera_.take(), "read 18");
}

// ---- What it costs

// The features that a driver uses with each frame and when it sets a camera anew. `cachable` is said of all
// registers.
std::string driven_camera(const std::string& cachable, bool selects) {
  const auto selector = [&](const std::string& name, const std::string& address,
                            const std::string& selected) {
    return "<Enumeration Name='" + name + "'><EnumEntry Name='First'><Value>0</Value></EnumEntry>" +
           "<EnumEntry Name='Second'><Value>1</Value></EnumEntry><pValue>" + name + "Reg</pValue>" +
           (selects ? "<pSelected>" + selected + "</pSelected>" : "") + "</Enumeration>" +
           reg(name + "Reg", at(address) + cachable);
  };
  const auto behind = [](const std::string& name, const std::string& index) {
    return "<pIndex Offset='8'>" + index + "Reg</pIndex>" + at(name);
  };
  return selector("TemperatureSelector", "0x10", "Temperature") +
         reg("Temperature", behind("0x100", "TemperatureSelector"), "RO") +
         selector("GainSelector", "0x14", "Gain") + reg("Gain", behind("0x200", "GainSelector") + cachable) +
         selector("LineSelector", "0x18", "LineSource") + "<Enumeration Name='LineSource'>" +
         "<EnumEntry Name='Off'><Value>0</Value></EnumEntry><EnumEntry "
         "Name='On'><Value>1</Value></EnumEntry>" +
         "<pValue>LineSourceReg</pValue></Enumeration>" +
         reg("LineSourceReg", behind("0x300", "LineSelector") + cachable) +
         reg("ExposureTime", at("0x20") + cachable);
}

class Cost : public Features {
 public:
  void frame() {
    text("TemperatureSelector");
    text("Temperature");
    write("GainSelector", "First");
    text("Gain");
    text("ExposureTime");
  }
  void sweep() {
    for (const char* value : {"5", "6"}) {
      write("GainSelector", "First");
      write("Gain", value);
      write("ExposureTime", value);
      for (const char* line : {"First", "Second"}) {
        write("LineSelector", line);
        write("LineSource", *value == '5' ? "On" : "Off");
        text("LineSource");
      }
      frame();
    }
  }
  std::size_t commands_of(void (Cost::*work)()) {
    camera_.take();
    (this->*work)();
    const std::string commands = camera_.take();
    return commands.empty() ? 0
                            : static_cast<std::size_t>(std::count(commands.begin(), commands.end(), ',')) + 1;
  }
};

// Each rule is switched off by the description, and so shows what it saves. Catches a rule that has come to
// save nothing, and a frame that costs more than its temperature.
TEST_F(Cost, is_one_command_a_frame_by_the_rules_of_the_cache) {
  struct variant {
    const char* without;
    std::string cachable;  // of all registers
    bool selects;
    std::size_t ofFrame;
    std::size_t ofSweep;  // two settings with a frame each
  };
  for (const variant& each :
       {variant{"(nothing)", "", true, 1, 18},
        {"registers are known until something may change them", "<Cachable>NoCache</Cachable>", true, 10, 64},
        {"a choice that was written is known", "<Cachable>WriteAround</Cachable>", true, 1, 27},
        {"selecting what is selected is no command", "", false, 2, 22}}) {
    describe(driven_camera(each.cachable, each.selects));
    frame();
    const std::size_t ofFrame = commands_of(&Cost::frame);
    const std::size_t ofSweep = commands_of(&Cost::sweep);
    EXPECT_EQ(ofFrame, each.ofFrame) << "without: " << each.without;
    EXPECT_EQ(ofSweep, each.ofSweep) << "without: " << each.without;
    std::cout << "without: " << each.without << ": " << ofFrame << " commands a frame, " << ofSweep
              << " commands for two settings\n";
  }
}

}  // namespace
}  // namespace description_test
