// A configuration file: what is wrong with it, and what the bundle gets of it.
#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <map>

#include "host/config/config.h"
#include "host/config/template.h"
#include "tests/host/support.h"
#include "tests/program.h"

namespace {

using tests::kCamera;

using tests::has;

TEST(config, reports_each_mistake_with_line_key_found_and_right) {
  struct {
    std::string text;
    std::vector<std::string> messages;
  } const cases[] = {
      {"", {"c:1: camera: found nothing, must be at least one [[camera]]"}},
      {"camera = 3", {"c:1: camera: found 3, must be an array of tables, written [[camera]]"}},
      {"[[camera]\n", {"c:1: the line is not valid TOML: "}},
      {kCamera + "gian_db = 1",
       {"c:8: camera[1].gian_db: found an unknown key, must be a known one; did you mean 'gain_db'?"}},
      {kCamera + "zzzzzzzzz = 1",
       {"c:8: camera[1].zzzzzzzzz: found an unknown key, must be one of serial, "}},
      {kCamera + "gamma = nan", {"c:8: camera[1].gamma: found nan, must be a number from 0.01 to 10"}},
      {kCamera + "ir_level = 1.5",
       {"c:8: camera[1].ir_level: found 1.5, must be a whole number from 0 to 65535"}},
      {kCamera + "pixel_format = \"Mono10\"",
       {"c:8: camera[1].pixel_format: found 'Mono10', must be \"Mono8\""}},
      {kCamera + kCamera,
       {"c:9: camera[2].serial: found 'SIM00001', must be a serial that no other [[camera]] has"}},
      {kCamera + "[[camera.pin]]\nline = \"Line3\"\n[[camera.pin]]\nline = \"Line3\"",
       {"c:11: camera[1].pin[2].line: found 'Line3', must be a line that no other pin has"}},
      {kCamera + "[[camera.pin]]\nline = \"Line3\"\nsource = \"exposure_ratio\"",
       {"c:8: camera[1].pin[1].exposure_ratio: found nothing, must be there when source is"}},
      {kCamera + "[[sweep]]\nexposure_us = 1", {"c:8: sweep[1]: found no wait, must be one of"}},
      {kCamera + "[[sweep]]\nafter_frames = 1\nafter_seconds = 1",
       {"c:8: sweep[1]: found both waits", "c:8: sweep[1]: found no setting, must be at least one of"}},
      {kCamera + "[[sweep]]\nafter_frames = 1\ngamma = 1\ncamera = \"X\"",
       {"c:11: sweep[1].camera: found 'X', must be the serial of a configured camera: SIM00001"}},
      // Ten mistakes, ten messages.
      {"colour = 1\n[[camera]]\nserial = \"\"\nframe_rate_hz = 0\nwidth = \"wide\"\nheight = 0\nexposure_us "
       "= -1\n"
       "gain_db = 61\npacket_size_max = 9181\nrotate180 = 1\n[[sweep]]\nafter_frames = 0\ngamma = 2\n",
       {"c:1: colour: ", "c:3: camera[1].serial: ", "c:4: camera[1].frame_rate_hz: ",
        "c:5: camera[1].width: found 'wide', must be a whole number from 1 to 65535 px",
        "c:6: camera[1].height: ", "c:7: camera[1].exposure_us: ", "c:8: camera[1].gain_db: ",
        "c:9: camera[1].packet_size_max: ", "c:10: camera[1].rotate180: ", "c:12: sweep[1].after_frames: "}},
  };
  for (const auto& each : cases) {
    const auto errors = host::parse_config(each.text, "c").errors;
    ASSERT_EQ(errors.size(), each.messages.size()) << each.text << fmt::format("{}", fmt::join(errors, "\n"));
    for (std::size_t at = 0; at < errors.size(); ++at) {
      EXPECT_TRUE(errors[at].starts_with(each.messages[at]))
          << errors[at] << "\nexpected " << each.messages[at];
    }
  }
}

TEST(config, becomes_the_rows_of_the_property_table) {
  const auto parsed = host::parse_config(kCamera + R"(rotate180 = true
[[camera.pin]]
line = "Line4"
source = "exposure_ratio"
exposure_ratio = 50
polarity = "inverted"
[[camera.pin]]
line = "Line3"
)",
                                         "c");
  ASSERT_TRUE(parsed.errors.empty()) << parsed.errors[0];
  const host::table_holder holder = host::make_table(parsed.value.cameras.at(0));
  const Zavik::Support::table<host::property, Zavik::Support::rw_table_like> table(holder.get());
  using enum host::property;
  const auto whole = [&](host::property row, std::uint8_t col) {
    std::int64_t value = -1;
    table.getInt64(row, col, value);
    return value;
  };
  const auto number = [&](host::property row) {
    float value = -1;
    table.getFloat(row, 0, value);
    return value;
  };
  EXPECT_EQ((std::array{whole(PIN_COUNT, 0), whole(PINx_REF, 0), whole(PINx_REF, 1), whole(PINx_SOURCE, 0),
                        whole(PINx_SOURCE, 1), whole(PINx_INVERTER, 0), whole(PINx_INVERTER, 1),
                        whole(PINx_EXPOSURE_RATIO, 0), whole(PINx_EXPOSURE_RATIO, 1)}),
            (std::array<std::int64_t, 9>{2, 6, 5, 3, 2, 2, 1, 50, -1}));
  EXPECT_EQ((std::array{whole(VS_ACQ_FRAME_FORMAT, 0), whole(VS_ACQ_SENSOR_X, 0), whole(VS_ACQ_SENSOR_W, 0),
                        whole(VS_ACQ_SENSOR_H, 0), whole(VS_SWEEP_MANUAL_IR_LEVEL, 0),
                        whole(MISC_STREAM_PACKET_SIZE_BYTES_MAX, 0)}),
            (std::array<std::int64_t, 6>{1, 0, 320, 240, 0, -1}));
  EXPECT_EQ(number(VS_ACQ_FPS_HZ), 50.0F);
  EXPECT_EQ(number(VS_SWEEP_MANUAL_EXPOSURE_USEC), 5000.0F);
  EXPECT_EQ(number(VS_SWEEP_MANUAL_GAMMA), -1.0F) << "left out must stay absent";
  bool rotated = false;
  EXPECT_TRUE(table.getBool(VS_ACQ_ROTATE180, 0, rotated));
  EXPECT_TRUE(rotated);
  std::string serial;
  EXPECT_TRUE(table.getString(DEV_SERIAL, 0, serial));
  EXPECT_EQ(serial, "SIM00001");
}

TEST(config, template_is_valid_and_names_every_key) {
  std::string text = host::config_template();
  EXPECT_TRUE(host::parse_config(text, "c").errors.empty());
  for (const auto* keys : {&host::camera_keys(), &host::pin_keys(), &host::sweep_keys()}) {
    for (const auto& key : *keys) {
      EXPECT_TRUE(has(text, std::string(key.name) + " = " + key.example)) << key.name;
    }
  }
}

TEST(config, warns_of_keys_without_effect) {
  const std::string sweep = "[[sweep]]\nafter_frames = 1\nir_level = 1\n";
  const std::string pin = "[[camera.pin]]\nline = \"Line3\"\n";
  EXPECT_EQ(
      host::parse_config(kCamera + "ir_level = 1\n" + sweep, "c.toml").warnings,
      (std::vector<std::string>{
          "c.toml:8: camera[1].ir_level has no effect: the camera has no [[camera.pin]]",
          "c.toml:11: sweep[1].ir_level has no effect: no camera that it is for has a [[camera.pin]]"}));
  EXPECT_EQ(
      host::parse_config(kCamera + "ir_level = 1\n" + pin + "exposure_ratio = 50\n" + sweep, "c.toml")
          .warnings,
      (std::vector<std::string>{
          "c.toml:11: camera[1].pin[1].exposure_ratio has no effect: source is not \"exposure_ratio\""}));
}

class unreadable : public tests::host_files {};

TEST_F(unreadable, files_are_told_in_words) {
  const std::string pipe = directory / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int writer = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  for (const auto& [path, reason] :
       std::map<std::string, std::string>{{"/dev/null", "is empty"},
                                          {"/dev/zero", "is longer than 1048576 bytes"},
                                          {directory, "cannot be read: Is a directory"},
                                          {"/nowhere", "cannot be read: No such file"},
                                          {pipe, "its writer does not finish it"}}) {
    const auto result = host::load_config(path);
    ASSERT_EQ(result.errors.size(), 1U) << path;
    EXPECT_TRUE(has(result.errors.front(), reason)) << result.errors.front();
  }
  close(writer);
}

}  // namespace
