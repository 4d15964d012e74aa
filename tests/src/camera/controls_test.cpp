// Exposure, frame rate, gain and sensor window: from the table to the camera.
#include "tests/src/camera/controls.h"
#include "src/camera/gev_exposure.h"
#include "src/camera/gev_fps.h"
#include "src/camera/gev_gain.h"
#include "src/camera/gev_sensor.h"

namespace test {
namespace {

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
  EXPECT_EQ(writes(), "");
}

// Catches a period that is computed from the request, or rounded otherwise.
TEST_F(controls, keep_the_frame_rate_that_the_camera_accepts) {
  for (const auto& [accepted, periodUs] : std::map<std::string, std::uint32_t>{
           {"30", 33'333}, {"7.5", 133'333}, {"29.97", 33'367}, {"300000", 3}}) {
    // The read-back, after the first value, the two limits and the write.
    atLookup(5, [&, &text = accepted] { sim::set_feature("CAM1", "AcquisitionFrameRate", text); });
    const auto fps = build<gigev2::fps_api>(settings().set(property::VS_ACQ_FPS_HZ, 30.0F));
    EXPECT_EQ(fps->fps, std::stof(accepted));
    EXPECT_EQ(fps->periodUs, periodUs);
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
> write GainSelector=SensorAll, min Gain
4 float_param.getHardMin: done: name:Gain, hard-min:1.000000
> max Gain
4 float_param.getHardMax: done: name:Gain, hard-max:16.000000
> write Gain=1
3 float_param.setValue: done: PvGenParameterArray::SetFloatValue (name:Gain, old-value:1.000000, new-value:1.000000)
4 gev_gain.gain_api: done
)");
  EXPECT_EQ(gain->getGainDb(), 0.0F);
  EXPECT_EQ(seen(), "\n> write GainSelector=SensorAll, read Gain\n");
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
  settings window = configuration().set(property::VS_ACQ_ROTATE180, true);
  window.set(property::VS_ACQ_SENSOR_X, 64).set(property::VS_ACQ_SENSOR_Y, 48);
  window.set(property::VS_ACQ_SENSOR_W, 320).set(property::VS_ACQ_SENSOR_H, 240);
  // The whole sensor leaves no room for an offset: refused once a direction, and then the other way round.
  build<gigev2::sensor_api>(window);
  EXPECT_EQ(writes(),
            "OffsetX=64 Width=320 OffsetX=64 OffsetY=48 Height=240 OffsetY=48 ReverseX=True ReverseY=True ");
  // The window of now leaves room for it: four writes.
  build<gigev2::sensor_api>(configuration());
  EXPECT_EQ(writes(), "OffsetX=0 Width=640 OffsetY=0 Height=480 ReverseX=False ReverseY=False ");
  sim::inject("write Height: runtime x2");
  EXPECT_EQ(raised([&] { build<gigev2::sensor_api>(window); }), "internal_error");
  EXPECT_THAT(logged(), HasSubstr("\n1 gev_sensor.sensor_api: fail: exception <RuntimeException: "));
  EXPECT_EQ(feature("Width") + feature("ReverseX"), "3200");
  // A value off the grid is no matter of order: not tried again.
  EXPECT_EQ(raised([&] { build<gigev2::sensor_api>(window.set(property::VS_ACQ_SENSOR_W, 321)); }),
            "external_error");
  EXPECT_EQ(writes(), "OffsetX=64 ");
}

// Catches a row that is not required, or read in another order.
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

}  // namespace
}  // namespace test
