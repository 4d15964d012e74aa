#include "src/camera/gev_gamma.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {
namespace {

constexpr const char* kModeOff = "Off";
constexpr const char* kModeActive = "Active";
constexpr const char* kTypeGamma = "GammaCorrection";

// How far beyond the camera's range a gamma is still passed on, for the camera to judge.
constexpr float kRangeTolerance = 0.06F;

// Runs `action`; an exception of the node map or a standard one is logged and makes it false.
template <class Action>
bool succeeds(Action action, caller where = caller::here()) {
  try {
    action();
    return true;
  } catch (const GenICam::GenericException& error) {
    LOG_FROM(where, 1, "fail: exception <%s>", error.what());
  } catch (const std::exception& error) {
    LOG_FROM(where, 1, "fail: exception <%s>", error.what());
  }
  return false;
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
  bool found = false;
  const caller here = caller::here();
  const bool written = succeeds([&] {
    lut_nodes lut{};
    found = findLut(lut, here);
    if (!found) {
      return;
    }
    if (state == kGEV_GAMMA_STATE__GAMMA) {
      lut.type->FromString(kTypeGamma, true);
      lut.mode->FromString(kModeActive, true);
    } else {
      lut.mode->FromString(kModeOff, true);
    }
  });
  return found && written;
}

int gamma_api::getGammaLimits(float& min, float& max) {
  bool hasLut = true;
  if (!limitsKnown_) {
    hasLut = learnLimits(caller::here());
  }
  if (!hasLut) {
    return 1;
  }
  if (!limitsKnown_) {
    return -2;
  }
  min = limitMin_;
  max = limitMax_;
  return 0;
}

// The range is that of the LUT type gamma correction, so the type becomes that one for the reading. Another
// type that was there is put back whatever ends the reading, also when the camera took the type and then
// failed to say so. False without a LUT.
bool gamma_api::learnLimits(caller where) {
  bool hasLut = true;
  std::optional<GenICam::gcstring> otherType;
  succeeds(
      [&] {
        const gev_gamma_state state = getGammaState();
        hasLut = state != kGEV_GAMMA_STATE__UNKNOWN;
        if (!hasLut) {
          return;
        }
        if (state != kGEV_GAMMA_STATE__GAMMA) {
          otherType = findOtherType(where);
        }
        if (otherType) {
          writeType(kTypeGamma, where);
          LOG_FROM(where, 3, "### Gamma feature is disabled ###");
        }
        readLimits(where);
      },
      where);
  if (otherType) {
    succeeds([&] { writeType(*otherType, where); }, where);
  }
  return hasLut;
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

void gamma_api::writeType(const GenICam::gcstring& text, caller where) const {
  if (GenApi::IEnumeration* type = findType(where)) {
    type->FromString(text, true);
  }
}

void gamma_api::readLimits(caller where) {
  GenApi::IFloat* value = findValue(where);
  if (value == nullptr) {
    return;
  }
  limitMin_ = static_cast<float>(value->GetMin());
  limitMax_ = static_cast<float>(value->GetMax());
  limitsKnown_ = true;
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
