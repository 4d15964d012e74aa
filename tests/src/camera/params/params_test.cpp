// Single camera features as parameters: limits, validation, caches and the log line of every write.
#include <array>
#include <climits>
#include <cmath>
#include <limits>

#include "src/camera/params/bool_param.h"
#include "src/camera/params/float_param.h"
#include "src/camera/params/int64_param.h"
#include "tests/src/bundle_fixture.h"

namespace test {
namespace {

class params : public bundle_test {
 protected:
  params() {
    openCamera();
    sim::set_feature("CAM1", "Width", "320");  // room for an offset
  }

  /// "OffsetX" as a camera with these limits would have it.
  static void integerLimits(const char* min, const char* max, const char* inc) {
    sim::alter_feature("CAM1", "OffsetX", "min", min);
    sim::alter_feature("CAM1", "OffsetX", "max", max);
    sim::alter_feature("CAM1", "OffsetX", "inc", inc);
  }
  static void floatLimits(const char* min, const char* max) {
    sim::alter_feature("CAM1", "Gain", "min", min);
    sim::alter_feature("CAM1", "Gain", "max", max);
  }

  GenApi::CNodeMapRef none;
};

// Catches limits that exclude their ends, a grid that starts anywhere but at the hard minimum, and arithmetic
// that overflows.
TEST_F(params, validate_integers_against_limits_and_grid) {
  struct {
    const char *min, *max, *inc;
    std::int64_t softMin, softMax, softInc;  // 0: not set
    std::int64_t value;
    const char* refusal;  // empty: valid
  } const cases[] = {
      {"0", "100", "1", 0, 0, 0, 0, ""},
      {"0", "100", "1", 0, 0, 0, 100, ""},
      {"0", "100", "1", 0, 0, 0, 101, "value:101, soft-min:0, soft-max:100"},
      {"16", "96", "4", 0, 0, 0, 18, "value:18, hard-min:16, soft-inc:4"},
      {"16", "96", "4", 18, 0, 0, 20, ""},
      {"16", "96", "4", 18, 64, 0, 16, "value:16, soft-min:18, soft-max:64"},
      {"16", "96", "4", 18, 64, 0, 68, "value:68, soft-min:18, soft-max:64"},
      {"16", "96", "4", 0, 0, 8, 20, "value:20, hard-min:16, soft-inc:8"},
      {"0", "100", "0", 0, 0, 0, 37, ""},
      {"0", "100", "0", 0, 0, 7, 37, "value:37, hard-min:0, soft-inc:7"},
      {"0", "100", "-4", 0, 0, -8, 12, "value:12, hard-min:0, soft-inc:-8"},
      {"-9223372036854775807", "9223372036854775806", "2", 0, 0, 0, INT64_MAX - 1,
       "value:9223372036854775806, hard-min:-9223372036854775807, soft-inc:2"},
      {"-9223372036854775808", "100", "3", 0, 0, 0, 50, ""},
  };
  for (const auto& c : cases) {
    integerLimits(c.min, c.max, c.inc);
    gigev2::rw_int64_param param(this, "OffsetX");
    const auto set = [&](void (gigev2::rw_int64_param::*setter)(std::int64_t), std::int64_t limit) {
      limit != 0 ? (param.*setter)(limit) : void();
    };
    set(&gigev2::rw_int64_param::setMin, c.softMin);
    set(&gigev2::rw_int64_param::setMax, c.softMax);
    set(&gigev2::rw_int64_param::setInc, c.softInc);
    const bool isValid = *c.refusal == '\0';
    EXPECT_EQ(param.validate(c.value), isValid) << c.value;
    const std::string line = std::string("2 int64_param.validate: fail: name:OffsetX, ") + c.refusal + "\n";
    EXPECT_EQ(seenWith({".validate"}), isValid ? "\n" : "\n" + line);
  }
}

// Catches a soft limit beyond the hard ones that is taken, a right one that is refused, and wrong words about
// either.
TEST_F(params, take_soft_limits_within_the_hard_ones_only) {
  integerLimits("16", "96", "4");
  gigev2::rw_int64_param integer(this, "OffsetX");
  integer.validate(16);
  seen();
  EXPECT_EQ(raised([&] { integer.setMin(15); }), "params_error");
  EXPECT_EQ(raised([&] { integer.setMax(97); }), "params_error");
  EXPECT_EQ(raised([&] { integer.setInc(4); }), "params_error");
  EXPECT_EQ(raised([&] { integer.setInc(6); }), "params_error");
  integer.setMin(90);
  integer.setMax(20);
  integer.setInc(8);
  EXPECT_EQ((std::array{integer.getMin(), integer.getMax(), integer.getInc()}),
            (std::array<std::int64_t, 3>{90, 20, 8}));
  EXPECT_FALSE(integer.validate(24));
  floatLimits("-20", "20");
  gigev2::rw_float_param number(this, "Gain");
  EXPECT_EQ(raised([&] { number.setMin(-20.5F); }), "params_error");
  EXPECT_EQ(raised([&] { number.setMax(20.5F); }), "params_error");
  EXPECT_FALSE(number.validate(0.0F));
  number.setMin(-10);
  for (const float valid : {0.0F, -10.0F, std::nanf("")}) {
    EXPECT_TRUE(number.validate(valid)) << valid;
  }
  EXPECT_FALSE(number.validate(-15.0F));
  number.setMax(15);
  EXPECT_TRUE(number.validate(15.0F));
  EXPECT_FALSE(number.validate(std::numeric_limits<float>::infinity()));
  EXPECT_EQ(logged(), R"(
1 int64_param.setMin: fail: params_error (name:OffsetX, value:15, hard-min:16)
1 int64_param.setMax: fail: params_error (name:OffsetX, value:97, hard-max:96)
1 int64_param.setInc: fail: params_error (name:OffsetX, value:4, hard-inc:4)
1 int64_param.setInc: fail: params_error (name:OffsetX, value:6, hard-inc:4)
4 int64_param.setMax: done: name:OffsetX, value:20)
2 int64_param.validate: fail: name:OffsetX, value:24, soft-min:90, soft-max:20
4 float_param.getHardMin: done: name:Gain, hard-min:-20.000000
1 float_param.setMin: fail: params_error (name:Gain, value:-20.500000, hard-min:-20.000000)
4 float_param.getHardMax: done: name:Gain, hard-max:20.000000
1 float_param.setMax: fail: params_error (name:Gain, value:20.500000, hard-max:20.000000)
2 float_param.validate: fail: name:Gain, value:0.000000, soft-min:0.000000, soft-max:20.000000
2 float_param.validate: fail: name:Gain, value:-15.000000, soft-min:-10.000000, soft-max:20.000000
4 float_param.setMax: done: name:Gain, value:15.000000)
2 float_param.validate: fail: name:Gain, value:inf, soft-min:-10.000000, soft-max:15.000000
)");
}

// Catches a soft increment rule that goes wrong with the sign of the hard one.
TEST_F(params, take_larger_multiples_as_soft_increment) {
  struct {
    const char* hard;
    std::int64_t soft;
    bool taken;
  } const cases[] = {{"4", 8, true},          {"4", 4, false},   {"4", -8, false}, {"4", 0, false},
                     {"-4", -8, true},        {"-4", -4, false}, {"-4", 8, false}, {"-4", -6, false},
                     {"-1", INT64_MIN, true}, {"0", -3, true}};
  for (const auto& c : cases) {
    integerLimits("0", "100", c.hard);
    gigev2::rw_int64_param param(this, "OffsetX");
    EXPECT_EQ(raised([&] { param.setInc(c.soft); }), c.taken ? "none" : "params_error")
        << c.hard << " " << c.soft;
  }
}

// Catches a write that does not check, checks again at the camera's cost, hides what it did, or forgets the
// last value; and one that keeps something of a refused value.
TEST_F(params, write_valid_values_and_log_old_and_new) {
  integerLimits("0", "96", "4");
  gigev2::rw_int64_param integer(this, "OffsetX");
  integer.setValue(8);
  integer.setValue(16);
  EXPECT_EQ(raised([&] { integer.setValue(18); }), "external_error");
  sim::inject("write OffsetX: access x1");
  EXPECT_EQ(raised([&] { integer.setValue(20); }).substr(0, 16), "AccessException:");
  integer.setValue(24);
  EXPECT_EQ(seen(), R"(
> min OffsetX
4 int64_param.getHardMin: done: name:OffsetX, hard-min:0
> max OffsetX
4 int64_param.getHardMax: done: name:OffsetX, hard-max:96
> inc OffsetX
4 int64_param.getHardInc: done: name:OffsetX, hard-inc:4
> write OffsetX=8
3 int64_param.setValue: done: PvGenInteger::SetValue (name:OffsetX, old-value:unknown, new-value:8)
> write OffsetX=16
3 int64_param.setValue: done: PvGenInteger::SetValue (name:OffsetX, old-value:8, new-value:16)
2 int64_param.validate: fail: name:OffsetX, value:18, hard-min:0, soft-inc:4
1 int64_param.setValue: fail: validate
> write OffsetX=20, write OffsetX=24
3 int64_param.setValue: done: PvGenInteger::SetValue (name:OffsetX, old-value:16, new-value:24)
)");
  floatLimits("1", "8");
  sim::set_feature("CAM1", "Gain", "2");
  gigev2::rw_float_param number(this, "Gain");
  number.setValue(4.5F);
  EXPECT_EQ(raised([&] { number.setValue(9); }), "external_error");
  sim::set_feature("CAM1", "Gain", "1.17549435e-38");
  number.getValue();
  number.setValue(3);
  EXPECT_EQ(seen(), R"(
> read Gain, min Gain
4 float_param.getHardMin: done: name:Gain, hard-min:1.000000
> max Gain
4 float_param.getHardMax: done: name:Gain, hard-max:8.000000
> write Gain=4.5
3 float_param.setValue: done: PvGenParameterArray::SetFloatValue (name:Gain, old-value:2.000000, new-value:4.500000)
2 float_param.validate: fail: name:Gain, value:9.000000, soft-min:1.000000, soft-max:8.000000
1 float_param.setValue: fail: validate
> read Gain, write Gain=3
3 float_param.setValue: done: PvGenParameterArray::SetFloatValue (name:Gain, old-value:unknown, new-value:3.000000)
)");
}

// Catches a value that is cut to 32 bits in silence.
TEST_F(params, narrow_to_32_bits_or_fail) {
  gigev2::ro_int64_param param(this, "OffsetX");
  for (const auto& [value, outcome] : std::map<const char*, std::string>{
           {"-1", "1 fail: static_cast (name:OffsetX, value:-1, min-value:0)"},
           {"4294967296", "1 fail: static_cast (name:OffsetX, value:4294967296, max-value:4294967295)"},
           {"4294967295", "4 done: name:OffsetX, value:4294967295"}}) {
    sim::set_feature("CAM1", "OffsetX", value);
    EXPECT_EQ(raised([&, &text = value] { EXPECT_EQ(param.getValueUint32(), std::stoull(text)); }),
              outcome[0] == '4' ? "none" : "external_error");
    EXPECT_EQ(logged(),
              "\n" + outcome.substr(0, 2) + "int64_param.getValueUint32: " + outcome.substr(2) + "\n");
  }
}

// Catches a camera that is not there: what is raised, what is logged at which level, and what is kept of it.
TEST_F(params, report_what_is_missing) {
  gigev2::rw_int64_param integer(this, "OffsetX");
  gigev2::rw_float_param number(this, "Gain");
  gigev2::bool_enum_param flag(this, "ReverseX", "True", "False");
  GenApi::CNodeMapRef* const present = nodeMap;
  nodeMap = nullptr;
  EXPECT_EQ(integer.getHardMax(), INT64_MAX);
  EXPECT_EQ(integer.getHardMin(), INT64_MIN);
  EXPECT_EQ(integer.getHardInc(), 0);
  EXPECT_EQ(number.getHardMin(), std::numeric_limits<float>::min());
  EXPECT_EQ(number.getHardMax(), std::numeric_limits<float>::max());
  for (const auto& action : std::vector<std::function<void()>>{
           [&] { integer.getValue(); }, [&] { number.getValue(); }, [&] { flag.setValue(true); },
           [&] { gigev2::ro_float_param(this, "Gain"); }}) {
    EXPECT_EQ(raised(action), "internal_error");
  }
  EXPECT_EQ(logged(), R"(
2 int64_param.getHardMax: fail: param_provider_like::getDevParams
2 int64_param.getHardMin: fail: param_provider_like::getDevParams
2 int64_param.getHardInc: fail: param_provider_like::getDevParams
2 float_param.getHardMin: fail: param_provider_like::getDevParams
2 float_param.getHardMax: fail: param_provider_like::getDevParams
1 int64_param.getValue: fail: param_provider_like::getDevParams
1 float_param.getValue: fail: param_provider_like::getDevParams
1 bool_param.setValue: fail: param_provider_like::getDevParams
1 float_param.getValue: fail: param_provider_like::getDevParams
)");
  nodeMap = &none;
  const std::string noMap = "AccessException: Feature not present (reference not valid)";
  EXPECT_EQ(raised([&] { integer.getHardMax(); }) + raised([&] { flag.setValue(true); }), noMap + noMap);
  nodeMap = present;
  sim::alter_feature("CAM1", "OffsetX", "max", "96");
  EXPECT_EQ(integer.getHardMax(), 96);
  sim::alter_feature("CAM1", "OffsetX", "max", "32");
  EXPECT_EQ(integer.getHardMax(), 96);  // once read, never again
  sim::alter_feature("CAM1", "OffsetX", "kind", "string");
  EXPECT_EQ(raised([&] { integer.getValue(); }), "internal_error");
  EXPECT_EQ(raised([&] { gigev2::ro_float_param(this, "NoSuchFeature"); }), "internal_error");
  EXPECT_EQ(logged(), R"(
4 int64_param.getHardMax: done: name:OffsetX, hard-max:96
1 int64_param.getValue: fail: INodeMap::GetNode (name:OffsetX)
1 float_param.getValue: fail: INodeMap::GetNode (name:NoSuchFeature)
)");
}

// Catches the wrong text for a flag, and a refusal that passes as a node map's exception or without its text.
TEST_F(params, write_flags_as_texts) {
  gigev2::bool_enum_param flag(this, "ReverseX", "True", "False");
  flag.setValue(true);
  flag.setValue(false);
  EXPECT_EQ(seen(), R"(
> write ReverseX=True
4 bool_param.setValue: done: SetEnumValue (name:ReverseX, value:True)
> write ReverseX=False
4 bool_param.setValue: done: SetEnumValue (name:ReverseX, value:False)
)");
  gigev2::bool_enum_param odd(this, "lutMode", "Perhaps", "Off");
  EXPECT_EQ(raised([&] { odd.setValue(true); }), "internal_error");
  EXPECT_THAT(logged(),
              StartsWith("\n1 bool_param.setValue: fail: IValue::FromString (name:lutMode, value:Perhaps, "
                         "exception:<InvalidArgumentException: lutMode"));
}

}  // namespace
}  // namespace test
