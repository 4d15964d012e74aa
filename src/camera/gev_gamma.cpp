#include "src/camera/gev_gamma.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {
namespace {

constexpr const char* kModeOff = "Off";
constexpr const char* kModeActive = "Active";
constexpr const char* kTypeGamma = "GammaCorrection";

// How far beyond the camera's range a gamma is still passed on, for the camera to judge.
constexpr float kRangeTolerance = 0.06F;

// What getGammaLimits answers when it gives no range.
constexpr int kNoLut = 1;
constexpr int kNoRange = -2;

// What `action` returns. An exception of the node map or a standard one is logged, and an empty value
// returned: false, or an optional without content.
template <class Action>
auto attempt(Action action, caller where) -> decltype(action()) {
  try {
    return action();
  } catch (const GenICam::GenericException& error) {
    LOG_FROM(where, 1, "fail: exception <%s>", error.what());
  } catch (const std::exception& error) {
    LOG_FROM(where, 1, "fail: exception <%s>", error.what());
  }
  return {};
}

}  // namespace

gamma_api::gamma_api(param_provider_like* provider, const table<property, table_like>&)
    : provider_(provider) {
  const gev_gamma_state state = getGammaState();
  if (state != kGEV_GAMMA_STATE__GAMMA) {
    LOG(3, "### Gamma feature is disabled (%u) ###", static_cast<unsigned>(state));
    throw internal_error();
  }
  float min = 0;
  float max = 0;
  if (getGammaLimits(min, max) != 0) {
    LOG(2, "Can't get Gamma range");
    throw internal_error();
  }
}

bool gamma_api::findLut(lut_nodes& lut, caller where) const {
  const GenApi::CNodeMapRef& nodeMap = requireNodeMap(provider_, where);
  lut.mode = findNode<GenApi::IEnumeration>(nodeMap, "lutMode");
  if (lut.mode == nullptr) {
    LOG_FROM(where, 2, "fail: INodeMap::GetNode (name:lutMode)");
    return false;
  }
  lut.type = findNode<GenApi::IEnumeration>(nodeMap, "lutType");
  if (lut.type == nullptr) {
    LOG_FROM(where, 2, "fail: INodeMap::GetNode (name:lutType)");
    return false;
  }
  return true;
}

GenApi::IFloat* gamma_api::findValue(caller where) const {
  return findNode<GenApi::IFloat>(requireNodeMap(provider_, where), valueFeature_.c_str());
}

gev_gamma_state gamma_api::getGammaState() const {
  lut_nodes lut{};
  if (!findLut(lut)) {
    return kGEV_GAMMA_STATE__UNKNOWN;
  }
  const GenICam::gcstring mode = lut.mode->ToString(false, false);
  const GenICam::gcstring type = lut.type->ToString(false, false);
  if (mode == kModeOff) {
    return kGEV_GAMMA_STATE__OFF;
  }
  return mode == kModeActive && type == kTypeGamma ? kGEV_GAMMA_STATE__GAMMA : kGEV_GAMMA_STATE__OTHER;
}

bool gamma_api::setGammaState(gev_gamma_state state) const {
  const caller here = caller::here();
  const auto write = [&] {
    lut_nodes lut{};
    if (!findLut(lut, here)) {
      return false;
    }
    if (state == kGEV_GAMMA_STATE__GAMMA) {
      lut.type->FromString(kTypeGamma, true);
      lut.mode->FromString(kModeActive, true);
    } else {
      lut.mode->FromString(kModeOff, true);
    }
    return true;
  };
  return attempt(write, here);
}

int gamma_api::getGammaLimits(float& min, float& max) {
  const caller here = caller::here();
  if (!range_) {
    const auto state = attempt([&] { return std::optional(getGammaState()); }, here);
    if (state == kGEV_GAMMA_STATE__UNKNOWN) {
      return kNoLut;
    }
    if (state) {
      range_ = state == kGEV_GAMMA_STATE__GAMMA ? readRange(here) : readRangeOfGammaType(here);
    }
  }
  if (!range_) {
    return kNoRange;
  }
  min = range_->min;
  max = range_->max;
  return 0;
}

// The range as the camera has it with the present LUT type; nothing when it can't be read.
std::optional<gamma_api::gamma_range> gamma_api::readRange(caller where) const {
  const auto read = [&]() -> std::optional<gamma_range> {
    GenApi::IFloat* value = findValue(where);
    if (value == nullptr) {
      return std::nullopt;
    }
    const auto min = static_cast<float>(value->GetMin());
    const auto max = static_cast<float>(value->GetMax());
    return gamma_range{min, max};
  };
  return attempt(read, where);
}

// As readRange, with gamma correction as the LUT type. Another type is put back after the reading, also when
// the camera took gamma correction and then failed to say so.
std::optional<gamma_api::gamma_range> gamma_api::readRangeOfGammaType(caller where) const {
  std::optional<GenICam::gcstring> otherType;
  const auto find = [&] {
    otherType = findOtherType(where);
    return true;
  };
  if (!attempt(find, where)) {
    return std::nullopt;
  }
  if (!otherType) {
    return readRange(where);
  }
  std::optional<gamma_range> range;
  if (writeType(kTypeGamma, where)) {
    LOG_FROM(where, 3, "### Gamma feature is disabled ###");
    range = readRange(where);
  }
  writeType(*otherType, where);
  return range;
}

GenApi::IEnumeration* gamma_api::findType(caller where) const {
  return findNode<GenApi::IEnumeration>(requireNodeMap(provider_, where), "lutType");
}

// The LUT type that there is, unless it is gamma correction.
std::optional<GenICam::gcstring> gamma_api::findOtherType(caller where) const {
  GenApi::IEnumeration* type = findType(where);
  if (type == nullptr) {
    return std::nullopt;
  }
  GenICam::gcstring found = type->ToString(false, false);
  return found == kTypeGamma ? std::nullopt : std::optional(found);
}

// False, after a log line, when the camera refuses the type.
bool gamma_api::writeType(const GenICam::gcstring& text, caller where) const {
  const auto write = [&] {
    if (GenApi::IEnumeration* type = findType(where)) {
      type->FromString(text, true);
    }
    return true;
  };
  return attempt(write, where);
}

bool gamma_api::setGamma(float gamma, const gev_gamma_state* state) {
  const gev_gamma_state current = state != nullptr ? *state : getGammaState();
  if (current == kGEV_GAMMA_STATE__UNKNOWN) {
    return false;
  }
  if (current == kGEV_GAMMA_STATE__GAMMA) {
    float min = 0;
    float max = 0;
    if (getGammaLimits(min, max) != 0) {
      LOG(2, "Can't get Gamma range");
      return false;
    }
    min -= kRangeTolerance;
    max += kRangeTolerance;
    if (min > gamma || gamma > max) {
      LOG(2, "Asked Gamma value %f is out of bounds [%f..%f]", static_cast<double>(gamma),
          static_cast<double>(min), static_cast<double>(max));
      return false;
    }
  } else {
    LOG(3, "### Gamma feature is disabled ###");
    if (!setGammaState(kGEV_GAMMA_STATE__GAMMA)) {
      LOG(2, "Can't enable Gamma feature");
      return false;
    }
  }
  GenApi::IFloat* value = findValue();
  if (value == nullptr) {
    LOG(2, "Can't get Gamma enum parameter");
    return false;
  }
  value->SetValue(static_cast<double>(gamma), true);
  LOG(3, "### set Gamma value: %f ###", static_cast<double>(gamma));
  return true;
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
