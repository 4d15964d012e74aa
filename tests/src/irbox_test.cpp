// IR outputs: the pins of the table, and what each set-up writes to the camera's lines.
#include "src/gev_irbox.h"
#include "tests/src/bundle_fixture.h"

namespace test {
namespace {

class ir_outputs : public bundle_test {
 protected:
  ir_outputs() { openCamera(); }

  gigev2::gev_irbox box(const settings& rows) { return {this, rows.table().get()}; }
  static void setup(gigev2::gev_irbox& box, const settings& rows) { box.setup(rows.table().get()); }
};

// Catches a write that is missing, superfluous or out of order, on either line.
TEST_F(ir_outputs, follow_the_exposure_or_are_off) {
  gigev2::gev_irbox irBox = box(settings().pin(0, 5, 2, 1).pin(1, 6, 3, 2, 40));
  EXPECT_EQ(seen(), "\n4 gev_irbox.gev_irbox: exec\n4 gev_irbox.gev_irbox: done\n");
  setup(irBox, sweep(5000.7F, 3));
  const auto steps = [](const std::string& line, const std::string& inverter, const std::string& durationUs) {
    return "write LineSelector=" + line +
           ", write outputLineSource=ExposureActive, write LineInverter=" + inverter +
           ", access outputLinePulseDelay, min outputLinePulseDelay, max outputLinePulseDelay, write "
           "outputLinePulseDelay=0"
           ", access outputLinePulseDuration, min outputLinePulseDuration, max outputLinePulseDuration"
           ", write outputLinePulseDuration=" +
           durationUs;
  };
  EXPECT_EQ(seen(), "\n4 gev_irbox.setup: exec\n> " + steps("Line3", "0", "5000") + ", " +
                        steps("Line4", "1", "2000") + "\n4 gev_irbox.setup: done\n");
  setup(irBox, sweep(5000, 0));
  EXPECT_EQ(writes(), "LineSelector=Line3 outputLineSource=Off LineSelector=Line4 outputLineSource=Off ");
}

// Catches another arithmetic, rounding, clamping, and a level whose size counts.
TEST_F(ir_outputs, last_a_share_of_the_exposure) {
  struct {
    float exposureUs;
    std::int64_t ratio;
    std::int64_t irLevel;
    const char* duration;  // of the line, 77 before
  } const cases[] = {{8000, 50, 1, "4000"},
                     {333, 50, 255, "166"},
                     {29, 100, 1, "28"},
                     {10'000, 100, -1, "10000"},
                     {10'000, 0, 1, "0"},
                     {-1, 1, 1, "77"},
                     {1e30F, 100, 1, "0"},
                     {5000, INT64_MAX, 1, "0"},
                     {1e6F, 10'000, 1, "77"},
                     {1000, -5, 1, "77"},
                     {5000, 10, std::int64_t{1} << 32U, "77"}};
  for (const auto& c : cases) {
    sim::set_feature("CAM1", "LineSelector", "Line3");
    sim::set_feature("CAM1", "outputLinePulseDuration", "77");
    gigev2::gev_irbox irBox = box(settings().pin(0, 5, 3, 1, c.ratio));
    setup(irBox, sweep(c.exposureUs, c.irLevel));
    EXPECT_EQ(feature("outputLinePulseDuration", "Line3"), c.duration) << c.exposureUs << " " << c.ratio;
  }
  sim::alter_feature("CAM1", "outputLinePulseDuration", "max", "4000");
  gigev2::gev_irbox irBox = box(settings().pin(0, 5, 3, 1, 50));
  setup(irBox, sweep(8000, 1));
  EXPECT_EQ(feature("outputLinePulseDuration", "Line3"), "4000");  // the limit itself is within the range
}

// Catches a pin that is built from an absent or unknown row, rows that are read without need, and other words
// for it.
TEST_F(ir_outputs, refuse_pins_that_are_not_whole) {
  const auto one = settings().pin(0, 5, 2, 1);
  for (const auto& [rows, outcome] : std::vector<std::pair<settings, const char*>>{
           {settings(), "4 gev_irbox.gev_irbox: done: pin-count:0"},
           {settings().set(property::PIN_COUNT, "2"), "4 gev_irbox.gev_irbox: done: pin-count:0"},
           {settings().set(property::PIN_COUNT, -3), "4 gev_irbox.gev_irbox: done"},
           {settings(one).without(property::PINx_REF),
            "1 gev_irbox.gev_irbox: fail: table::getIntEnum (row:PINx_REF, col:0)"},
           {settings(one).set(property::PIN_COUNT, 300),
            "1 gev_irbox.gev_irbox: fail: table::getIntEnum (row:PINx_REF, col:1)"},
           {settings().pin(0, 9, 9, 9).without(property::PINx_INVERTER),
            "1 gev_irbox.gev_irbox: fail: table::getIntEnum (row:PINx_INVERTER, col:0)"},
           {settings().pin(0, 9, 9, 3), "1 gev_irbox.gev_irbox: fail: unsupported (pin-inverter:3)"},
           {settings().pin(0, 9, 9, 0), "1 gev_irbox.gev_irbox: fail: unsupported (pin-inverter:0)"},
           {settings(one).pin(1, 9, 9, 2).without(property::PINx_SOURCE, 1),
            "1 gev_irbox.gev_irbox: fail: table::getIntEnum (row:PINx_SOURCE, col:1)"},
           {settings().pin(0, 9, 3, 1),
            "1 gev_irbox.gev_irbox: fail: table::getInt64 (row:PINx_EXPOSURE_RATIO)"},
           {settings(one).pin(1, 9, 1, 1, 50),
            "1 gev_irbox.gev_irbox: fail: unsupported (pin-source:1, col:1)"},
           {settings().pin(0, 4, 2, 1), "1 gev_irpin.gev_irpin: fail: unsupported (pin-ref:4)"},
           {settings(one).pin(1, 7, 3, 2, 100), "1 gev_irpin.gev_irpin: fail: unsupported (pin-ref:7)"}}) {
    EXPECT_EQ(raised([&, &rows = rows] { box(rows); }), outcome[0] == '4' ? "none" : "internal_error");
    EXPECT_EQ(seen(), std::string("\n4 gev_irbox.gev_irbox: exec\n") + outcome + "\n");
  }
  settings all;
  for (int col = 0; col < 256; ++col) {
    all.pin(static_cast<std::uint8_t>(col), 5 + col % 2, 2, 1);
  }
  EXPECT_EQ(raised([&] { box(all.set(property::PIN_COUNT, 300)); }), "none");  // columns come round again
  seen();
  EXPECT_EQ(raised([&] { gigev2::gev_irbox null(this, nullptr); }), "unsupported_error");
  EXPECT_EQ(seen(), "\n4 gev_irbox.gev_irbox: exec\n");
}

// Catches a set-up that goes on without its rows, and a table reference that is kept.
TEST_F(ir_outputs, need_level_and_exposure_even_without_pins) {
  gigev2::gev_irbox empty = box(settings());
  seen();
  const table_ptr noLevel = sweep(1, 1).without(property::VS_SWEEP_MANUAL_IR_LEVEL).table();
  const table_ptr noExposure = sweep(1, 1).without(property::VS_SWEEP_MANUAL_EXPOSURE_USEC).table();
  EXPECT_EQ(raised([&] { empty.setup(noLevel.get()); }), "internal_error");
  EXPECT_EQ(raised([&] { empty.setup(noExposure.get()); }), "internal_error");
  EXPECT_EQ(raised([&] { empty.setup(nullptr); }), "unsupported_error");
  setup(empty, sweep(1, 1));
  EXPECT_EQ(seen(), R"(
4 gev_irbox.setup: exec
1 gev_irbox.setup: fail: table::getInt64 (row:VS_SWEEP_MANUAL_IR_LEVEL)
4 gev_irbox.setup: exec
1 gev_irbox.setup: fail: table::getFloat (row:VS_SWEEP_MANUAL_EXPOSURE_USEC)
4 gev_irbox.setup: exec
4 gev_irbox.setup: exec
4 gev_irbox.setup: done
)");
}

// Catches look-ups in another order, or before they are needed, and nodes that are written though they must
// not be.
TEST_F(ir_outputs, take_the_camera_as_it_is) {
  gigev2::gev_irbox irBox = box(settings().pin(0, 5, 2, 1));
  for (const auto& [name, what, value] :
       std::vector<std::array<const char*, 3>>{{"outputLinePulseDuration", "access", "RO"},
                                               {"outputLinePulseDelay", "min", "1"},
                                               {"outputLinePulseDelay", "access", "WO"}}) {
    sim::alter_feature("CAM1", name, what, value);
    setup(irBox, sweep(500, 1));
    EXPECT_THAT(writes(), Not(HasSubstr(name))) << what;
  }
  // The line is selected before the features that belong to it are looked up.
  const std::string selected = "\n> write LineSelector=Line3\n";
  for (const auto& [missing, writes] :
       std::vector<std::pair<std::string, std::string>>{{"outputLinePulseDuration", selected},
                                                        {"outputLinePulseDelay", selected},
                                                        {"LineInverter", selected},
                                                        {"outputLineSource", "\n"},
                                                        {"LineSelector", "\n"}}) {
    sim::alter_feature("CAM1", missing, "kind", "string");
    if (writes == selected) {
      EXPECT_EQ(raised([&] { setup(irBox, sweep(500, 0)); }), "none");  // off needs none of them
    }
    seen();
    EXPECT_EQ(raised([&] { setup(irBox, sweep(500, 1)); }), "internal_error");
    std::string expected = "\n4 gev_irbox.setup: exec";
    expected.append(writes)
        .append("1 gev_irpin.setup: fail: INodeMap::GetNode (name:")
        .append(missing)
        .append(")\n");
    EXPECT_EQ(seen(), expected);
  }
  nodeMap = nullptr;
  EXPECT_EQ(raised([&] { setup(irBox, sweep(500, 1)); }), "internal_error");
  EXPECT_THAT(logged(), EndsWith("\n1 gev_irpin.setup: fail: param_provider_like::getDevParams\n"));
}

}  // namespace
}  // namespace test
