// Exposure, frame rate, gain, gamma and sensor window: from the table to the camera.
#include "src/camera/gev_exposure.h"
#include "src/camera/gev_fps.h"
#include "src/camera/gev_gain.h"
#include "src/camera/gev_gamma.h"
#include "src/camera/gev_sensor.h"
#include "tests/support.h"

namespace test {
namespace {

using config_view = Zavik::Support::table<property, table_like>;

class controls : public bundle_test {
 protected:
  controls() { openCamera(); }

  /// A control of type Control built from these rows.
  template <class Control>
  std::unique_ptr<Control> build(const settings& rows) {
    const table_ptr table = rows.table();
    return std::make_unique<Control>(this, config_view(table.get()));
  }
  template <class Control>
  static void setup(Control& control, const settings& rows) {
    const table_ptr table = rows.table();
    control.setup(config_view(table.get()));
  }
};

// Catches a row that is not applied, applied again without need, or applied though it is absent.
TEST_F(controls, carry_the_exposure) {
  auto exposure =
      build<gigev2::exposure_api>(settings().set(property::VS_SWEEP_MANUAL_EXPOSURE_USEC, 8000.0F));
  setup(*exposure, settings());
  setup(*exposure, settings().set(property::VS_SWEEP_MANUAL_EXPOSURE_USEC, 9000.0F));
  EXPECT_EQ(logged(), R"(
5 gev_exposure.exposure_api: exec
4 float_param.getHardMin: done: name:ExposureTime, hard-min:10.000000
4 float_param.getHardMax: done: name:ExposureTime, hard-max:2000000.000000
3 float_param.setValue: done: PvGenParameterArray::SetFloatValue (name:ExposureTime, old-value:5000.000000, new-value:8000.000000)
4 gev_exposure.exposure_api: done
3 float_param.setValue: done: PvGenParameterArray::SetFloatValue (name:ExposureTime, old-value:8000.000000, new-value:9000.000000)
)");
  build<gigev2::exposure_api>(settings());
  EXPECT_EQ(done("write"), "\n");
}

// Catches a period that is computed from the request, or rounded otherwise.
TEST_F(controls, keep_the_frame_rate_that_the_camera_accepts) {
  struct {
    const char* accepted;
    std::uint32_t periodUs;
  } const cases[] = {{"30", 33'333}, {"7.5", 133'333}, {"29.97", 33'367}, {"1000000", 1}, {"300000", 3}};
  for (const auto& c : cases) {
    // The read-back, after the first value, the two limits and the write.
    atLookup(5, [&] { sim::set_feature("CAM1", "AcquisitionFrameRate", c.accepted); });
    const auto fps = build<gigev2::fps_api>(settings().set(property::VS_ACQ_FPS_HZ, 30.0F));
    EXPECT_TRUE(fps->fps == std::stof(c.accepted) && fps->periodUs == c.periodUs)
        << fps->fps << " " << fps->periodUs;
  }
  seen();
  EXPECT_EQ(raised([&] { build<gigev2::fps_api>(settings().set(property::VS_ACQ_FPS_HZ, 25)); }),
            "params_error");
  EXPECT_EQ(seen(), R"(
> read AcquisitionFrameRate
5 gev_fps.fps_api: exec
1 gev_fps.fps_api: fail: VS_ACQ_FPS_HZ
)");
}

// Catches a selector that is trusted to stand where it stood, and decibels that are not converted or not
// back.
TEST_F(controls, carry_the_gain_in_decibels_behind_its_selector) {
  auto gain = build<gigev2::gain_api>(settings().set(property::VS_SWEEP_MANUAL_GAIN_DB, 0.0F));
  EXPECT_EQ(seen(), R"(
> read Gain
5 gev_gain.gain_api: exec
> write GainSelector=SensorAll
> min Gain
4 float_param.getHardMin: done: name:Gain, hard-min:1.000000
> max Gain
4 float_param.getHardMax: done: name:Gain, hard-max:16.000000
> write Gain=1
3 float_param.setValue: done: PvGenParameterArray::SetFloatValue (name:Gain, old-value:1.000000, new-value:1.000000)
4 gev_gain.gain_api: done
)");
  EXPECT_EQ(gain->getGainDb(), 0.0F);
  EXPECT_EQ(seen(), "\n> write GainSelector=SensorAll\n> read Gain\n");
  for (const auto& [decibels, factor] : std::map<float, double>{{6, 1.9952623}, {20, 10}, {6.0206F, 2}}) {
    setup(*gain, settings().set(property::VS_SWEEP_MANUAL_GAIN_DB, decibels));
    EXPECT_NEAR(std::stod(feature("Gain", "SensorAll")), factor, 1e-5);
    EXPECT_NEAR(gain->getGainDb(), decibels, 1e-4);
  }
  setup(*gain, settings());
  EXPECT_EQ(raised([&] { setup(*gain, settings().set(property::VS_SWEEP_MANUAL_GAIN_DB, -6.0F)); }),
            "external_error");
  sim::inject("write GainSelector: argument x1");
  EXPECT_EQ(raised([&] { gain->getGainDb(); }).substr(0, 25), "InvalidArgumentException:");
  GenApi::CNodeMapRef* const present = nodeMap;
  nodeMap = nullptr;
  seen();
  EXPECT_EQ(raised([&] { gain->getGainDb(); }), "internal_error");
  EXPECT_EQ(logged(), "\n1 gev_gain.getParam: fail: param_provider_like::getDevParams\n");
  nodeMap = present;
  sim::alter_feature("CAM1", "GainSelector", "kind", "string");
  EXPECT_EQ(raised([&] { gain->getGainDb(); }), "unsupported_error");
  EXPECT_EQ(logged(), "\n");
  EXPECT_EQ(raised([&] { build<gigev2::gain_api>(settings()); }), "none");  // not needed without the row
}

// Catches window rows that are written in another order, before all of them were read, or not tried both ways
// round.
TEST_F(controls, set_window_and_rotation) {
  settings window = configuration();
  window.set(property::VS_ACQ_SENSOR_X, 64).set(property::VS_ACQ_SENSOR_Y, 48);
  window.set(property::VS_ACQ_SENSOR_W, 320)
      .set(property::VS_ACQ_SENSOR_H, 240)
      .set(property::VS_ACQ_ROTATE180, true);
  // The whole sensor leaves no room for an offset: refused once a direction, and then the other way round.
  build<gigev2::sensor_api>(window);
  EXPECT_EQ(done("write"), R"(
> write OffsetX=64
> write Width=320
> write OffsetX=64
> write OffsetY=48
> write Height=240
> write OffsetY=48
> write ReverseX=True
> write ReverseY=True
)");
  // The window of now leaves room for it: four writes.
  build<gigev2::sensor_api>(configuration());
  EXPECT_EQ(done("write"), R"(
> write OffsetX=0
> write Width=640
> write OffsetY=0
> write Height=480
> write ReverseX=False
> write ReverseY=False
)");
  sim::inject("write Height: runtime x2");
  EXPECT_EQ(raised([&] { build<gigev2::sensor_api>(window); }), "internal_error");
  const std::string log = logged();
  EXPECT_TRUE(log.find("\n1 gev_sensor.sensor_api: fail: exception <RuntimeException: ") != std::string::npos)
      << log;
  EXPECT_EQ(feature("Width") + feature("ReverseX"), "3200");
  // A value off the grid is no matter of order: not tried again.
  EXPECT_EQ(raised([&] { build<gigev2::sensor_api>(window.set(property::VS_ACQ_SENSOR_W, 321)); }),
            "external_error");
  EXPECT_EQ(done("write"), "\n> write OffsetX=64\n");
}

// Catches a row that is not required, or asked for in another order.
TEST_F(controls, require_every_row_of_the_window) {
  settings rows = configuration();
  for (const auto& [row, name] :
       std::vector<std::pair<property, std::string>>{{property::VS_ACQ_ROTATE180, "VS_ACQ_ROTATE180"},
                                                     {property::VS_ACQ_SENSOR_H, "VS_ACQ_SENSOR_H"},
                                                     {property::VS_ACQ_SENSOR_W, "VS_ACQ_SENSOR_W"},
                                                     {property::VS_ACQ_SENSOR_Y, "VS_ACQ_SENSOR_Y"},
                                                     {property::VS_ACQ_SENSOR_X, "VS_ACQ_SENSOR_X"}}) {
    rows.without(row).set(row, "a cell of another type");
    EXPECT_EQ(raised([&] { build<gigev2::sensor_api>(rows); }), "params_error");
    EXPECT_EQ(seen(), "\n5 gev_sensor.sensor_api: exec\n1 gev_sensor.sensor_api: fail: " + name + "\n");
  }
}

class gamma_control : public controls {
 protected:
  std::unique_ptr<gigev2::gamma_api> gamma() { return build<gigev2::gamma_api>(settings()); }
  static void lut(const char* mode, const char* type) {
    sim::set_feature("CAM1", "lutMode", mode);
    sim::set_feature("CAM1", "lutType", type);
  }
};

// Catches a control that is built on a camera without active gamma correction, or reads its range more than
// once.
TEST_F(gamma_control, needs_gamma_correction_to_be_active) {
  auto active = gamma();
  float min = 0;
  float max = 0;
  EXPECT_EQ(active->getGammaLimits(min, max), 0);
  EXPECT_TRUE(min == 0.1F && max == 4.0F);
  EXPECT_EQ(seen(), R"(
> read lutMode
> read lutType
> read lutMode
> read lutType
> min gammaCorrection
> max gammaCorrection
)");
  lut("Off", "GammaCorrection");
  EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
  lut("Active", "UserDefined1");
  EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
  lut("Active", "GammaCorrection");
  sim::inject("min gammaCorrection: timeout");
  EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
  sim::alter_feature("CAM1", "gammaCorrection", "kind", "integer");
  EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
  sim::alter_feature("CAM1", "lutType", "kind", "string");
  EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
  EXPECT_EQ(logged(), R"(
3 gev_gamma.gamma_api: ### Gamma feature is disabled (1) ###
3 gev_gamma.gamma_api: ### Gamma feature is disabled (3) ###
1 gev_gamma.getGammaLimits: fail: exception <TimeoutException: injected fault>
2 gev_gamma.gamma_api: Can't get Gamma range
2 gev_gamma.gamma_api: Can't get Gamma range
2 gev_gamma.getGammaState: fail: INodeMap::GetNode (name:lutType)
3 gev_gamma.gamma_api: ### Gamma feature is disabled (0) ###
)");
}

// Catches a state that is named wrongly, written in another order, or not at all.
TEST_F(gamma_control, reads_and_writes_the_state) {
  using namespace gigev2;
  auto control = gamma();
  seen();
  struct {
    gev_gamma_state state;
    const char* writes;
  } const cases[] = {{kGEV_GAMMA_STATE__OTHER, "\n> write lutMode=Off\n"},
                     {kGEV_GAMMA_STATE__GAMMA, "\n> write lutType=GammaCorrection\n> write lutMode=Active\n"},
                     {kGEV_GAMMA_STATE__UNKNOWN, "\n> write lutMode=Off\n"},
                     {kGEV_GAMMA_STATE__OFF, "\n> write lutMode=Off\n"}};
  for (const auto& c : cases) {
    EXPECT_TRUE(control->setGammaState(c.state));
    EXPECT_EQ(seen(), c.writes);
    EXPECT_EQ(control->getGammaState(), c.state == kGEV_GAMMA_STATE__GAMMA ? c.state : kGEV_GAMMA_STATE__OFF);
    seen();
  }
  lut("Active", "UserDefined1");
  EXPECT_EQ(control->getGammaState(), kGEV_GAMMA_STATE__OTHER);
  seen();
  sim::inject("write lutType: access x1; write lutMode: std x1");
  EXPECT_FALSE(control->setGammaState(kGEV_GAMMA_STATE__GAMMA));
  EXPECT_EQ(done("write"), "\n> write lutType=GammaCorrection\n");
  EXPECT_FALSE(control->setGammaState(kGEV_GAMMA_STATE__OFF));
  EXPECT_EQ(logged(), "\n1 gev_gamma.setGammaState: fail: exception <injected fault>\n");
  nodeMap = nullptr;
  EXPECT_FALSE(control->setGammaState(kGEV_GAMMA_STATE__OFF));
  EXPECT_EQ(raised([&] { control->getGammaState(); }), "internal_error");
  EXPECT_EQ(logged(), R"(
1 gev_gamma.setGammaState: fail: param_provider_like::getDevParams
1 gev_gamma.setGammaState: fail: exception <std::exception>
1 gev_gamma.getGammaState: fail: param_provider_like::getDevParams
)");
}

// Catches a LUT type that is not put back, and a mode that is touched.
TEST_F(gamma_control, reads_the_range_behind_another_lut_type) {
  // The type changes between the control's look at the state and its look at the range.
  const auto atRange = [&](const char* fault) {
    lut("Active", "GammaCorrection");
    sim::clear_faults();
    sim::inject(fault);
    atLookup(2, [&] { lut("Active", "UserDefined1"); });
  };
  atRange("");
  auto control = gamma();
  float min = 0;
  float max = 0;
  EXPECT_EQ(control->getGammaLimits(min, max), 0);
  EXPECT_EQ(seen(), R"(
> read lutMode
> read lutType
> read lutMode
> read lutType
> read lutType
> write lutType=GammaCorrection
3 gev_gamma.getGammaLimits: ### Gamma feature is disabled ###
> min gammaCorrection
> max gammaCorrection
> write lutType=UserDefined1
)");
  atRange("max gammaCorrection: range x1");  // fails half-way: put back all the same
  EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
  EXPECT_EQ(done("write"), "\n> write lutType=GammaCorrection\n> write lutType=UserDefined1\n");
  atRange("min gammaCorrection: memory x1");
  EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
  EXPECT_EQ(done("write"), "\n> write lutType=GammaCorrection\n> write lutType=UserDefined1\n");
  atRange("write lutType: timeout x1");  // which the camera may have taken
  EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
  EXPECT_EQ(done("write"), "\n> write lutType=GammaCorrection\n> write lutType=UserDefined1\n");
  seen();
  atRange("write lutType: access @2");  // the range is known by then
  EXPECT_EQ(raised([&] { control = gamma(); }), "none");
  EXPECT_EQ(logged(), R"(
3 gev_gamma.getGammaLimits: ### Gamma feature is disabled ###
1 gev_gamma.getGammaLimits: fail: exception <AccessException: injected fault>
)");
  EXPECT_EQ(control->getGammaLimits(min, max), 0);
}

// Catches a value that is checked where it must not be or passes where it must not, and an exception that is
// swallowed.
TEST_F(gamma_control, writes_values_within_the_widened_range) {
  using namespace gigev2;
  auto control = gamma();
  seen();
  for (const float refused : {4.07F, 0.03F}) {
    EXPECT_FALSE(control->setGamma(refused, nullptr));
  }
  EXPECT_EQ(logged(), R"(
2 gev_gamma.setGamma: Asked Gamma value 4.070000 is out of bounds [0.040000..4.060000]
2 gev_gamma.setGamma: Asked Gamma value 0.030000 is out of bounds [0.040000..4.060000]
)");
  for (const float passed : {4.05F, 0.05F}) {  // on to the camera, which refuses it
    EXPECT_EQ(raised([&] { control->setGamma(passed, nullptr); }).substr(0, 20), "OutOfRangeException:");
  }
  seen();
  gev_gamma_state state = kGEV_GAMMA_STATE__OFF;
  EXPECT_TRUE(control->setGamma(1.5F, &state));
  EXPECT_EQ(seen(), R"(
3 gev_gamma.setGamma: ### Gamma feature is disabled ###
> write lutType=GammaCorrection
> write lutMode=Active
> write gammaCorrection=1.5
3 gev_gamma.setGamma: ### set Gamma value: 1.500000 ###
)");
  state = kGEV_GAMMA_STATE__UNKNOWN;
  EXPECT_FALSE(control->setGamma(1.5F, &state));
  EXPECT_EQ(seen(), "\n");
  state = kGEV_GAMMA_STATE__OTHER;
  sim::inject("write lutMode: access x1");
  EXPECT_FALSE(control->setGamma(9.0F, &state));
  sim::alter_feature("CAM1", "gammaCorrection", "kind", "string");
  EXPECT_FALSE(control->setGamma(1.5F, &state));
  const std::string log = logged();
  EXPECT_EQ(log.substr(log.find("2 gev_gamma")), R"(2 gev_gamma.setGamma: Can't enable Gamma feature
3 gev_gamma.setGamma: ### Gamma feature is disabled ###
2 gev_gamma.setGamma: Can't get Gamma enum parameter
)");
}

}  // namespace
}  // namespace test
