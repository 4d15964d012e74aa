// Gamma and the look-up table that carries it.
#include "src/camera/gev_gamma.h"
#include "tests/src/camera/controls.h"

namespace test {
namespace {

// The numbers that the device and the log know.
static_assert(gigev2::kGEV_GAMMA_STATE__UNKNOWN == 0 && gigev2::kGEV_GAMMA_STATE__OFF == 1 &&
              gigev2::kGEV_GAMMA_STATE__GAMMA == 2 && gigev2::kGEV_GAMMA_STATE__OTHER == 3);

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
  EXPECT_EQ((std::array{min, max}), (std::array{0.1F, 4.0F}));
  EXPECT_EQ(seen(), R"(
> read lutMode, read lutType, read lutMode, read lutType, min gammaCorrection, max gammaCorrection
)");
  for (const auto& spoil : std::vector<std::function<void()>>{
           [] { lut("Off", "GammaCorrection"); }, [] { lut("Active", "UserDefined1"); },
           [] {
             lut("Active", "GammaCorrection");
             sim::inject("min gammaCorrection: timeout");
           },
           [] { sim::alter_feature("CAM1", "gammaCorrection", "kind", "integer"); },
           [] { sim::alter_feature("CAM1", "lutType", "kind", "string"); }}) {
    spoil();
    EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
  }
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
  for (const auto& [state, written] : std::vector<std::pair<gev_gamma_state, const char*>>{
           {kGEV_GAMMA_STATE__OTHER, "lutMode=Off "},
           {kGEV_GAMMA_STATE__GAMMA, "lutType=GammaCorrection lutMode=Active "},
           {kGEV_GAMMA_STATE__UNKNOWN, "lutMode=Off "},
           {kGEV_GAMMA_STATE__OFF, "lutMode=Off "}}) {
    EXPECT_TRUE(control->setGammaState(state));
    EXPECT_EQ(writes(), written);
    EXPECT_EQ(control->getGammaState(), state == kGEV_GAMMA_STATE__GAMMA ? state : kGEV_GAMMA_STATE__OFF);
  }
  lut("Active", "UserDefined1");
  EXPECT_EQ(control->getGammaState(), kGEV_GAMMA_STATE__OTHER);
  seen();
  sim::inject("write lutType: access x1; write lutMode: std x1");
  EXPECT_FALSE(control->setGammaState(kGEV_GAMMA_STATE__GAMMA));
  EXPECT_EQ(writes(), "lutType=GammaCorrection ");
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
> read lutMode, read lutType, read lutMode, read lutType, read lutType, write lutType=GammaCorrection
3 gev_gamma.getGammaLimits: ### Gamma feature is disabled ###
> min gammaCorrection, max gammaCorrection, write lutType=UserDefined1
)");
  // A failure half-way, also of the write, which the camera may have taken: put back all the same.
  for (const char* fault :
       {"max gammaCorrection: range x1", "min gammaCorrection: memory x1", "write lutType: timeout x1"}) {
    seen();
    atRange(fault);
    EXPECT_EQ(raised([&] { gamma(); }), "internal_error");
    EXPECT_EQ(writes(), "lutType=GammaCorrection lutType=UserDefined1 ") << fault;
  }
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
> write lutType=GammaCorrection, write lutMode=Active, write gammaCorrection=1.5
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
  EXPECT_THAT(logged(), EndsWith(R"(
2 gev_gamma.setGamma: Can't enable Gamma feature
3 gev_gamma.setGamma: ### Gamma feature is disabled ###
2 gev_gamma.setGamma: Can't get Gamma enum parameter
)"));
}

}  // namespace
}  // namespace test
