#include "src/gev_irpin.h"

#include "core/numeric.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

gev_irpin::gev_irpin(param_provider_like* provider, cam_pin_ref ref, const gev_irpin_conf& conf)
    : provider_(provider), conf_(conf) {
  switch (ref) {
    case kCAM_PIN_REF__LINE3:
      lineName_ = "Line3";
      break;
    case kCAM_PIN_REF__LINE4:
      lineName_ = "Line4";
      break;
    default:
      LOG(1, "fail: unsupported (pin-ref:%u)", static_cast<unsigned>(ref));
      throw internal_error();
  }
}

void gev_irpin::setup(unsigned irLevel, unsigned exposureUsec) {
  const GenApi::CNodeMapRef& nodeMap = requireNodeMap(provider_);
  auto& line = requireNode<GenApi::IEnumeration>(nodeMap, "LineSelector");
  auto& source = requireNode<GenApi::IEnumeration>(nodeMap, "outputLineSource");
  line.FromString(lineName_.c_str(), true);
  if (irLevel == 0) {
    source.FromString("Off", true);
    return;
  }
  auto& inverter = requireNode<GenApi::IBoolean>(nodeMap, "LineInverter");
  auto& delay = requireNode<GenApi::IInteger>(nodeMap, "outputLinePulseDelay");
  auto& duration = requireNode<GenApi::IInteger>(nodeMap, "outputLinePulseDuration");
  source.FromString("ExposureActive", true);
  inverter.SetValue(conf_.inverter, true);
  setupDelay(delay);
  setupDuration(duration, exposureUsec);
}

void gev_irpin::setupDelay(GenApi::IInteger& delay) const {
  if (delay.GetAccessMode() == GenApi::RW && delay.GetMin() <= 0 && delay.GetMax() >= 0) {
    delay.SetValue(0, true);
  }
}

void gev_irpin::setupDuration(GenApi::IInteger& duration, unsigned exposureUsec) const {
  if (duration.GetAccessMode() != GenApi::RW) {
    return;
  }
  const double pulse = static_cast<double>(exposureUsec) / 100.0 * static_cast<double>(conf_.exposureRatio);
  const auto pulseUsec = static_cast<std::uint32_t>(truncateTo<std::int64_t>(pulse));
  if (pulseUsec < duration.GetMin() || pulseUsec > duration.GetMax()) {
    return;
  }
  duration.SetValue(pulseUsec, true);
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
