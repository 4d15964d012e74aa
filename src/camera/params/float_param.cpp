#include "src/camera/params/float_param.h"

#include <algorithm>

namespace Zavik::Support::MediaGrabber::Gigev2 {

ro_float_param::ro_float_param(param_provider_like* provider, const char* name)
    : provider_(provider), name_(name) {
  getValue();
}

float ro_float_param::getValue() {
  auto& node = requireNode<GenApi::IFloat>(requireNodeMap(provider_), name_.c_str());
  value_ = static_cast<float>(node.GetValue(false, false));
  return value_;
}

float rw_float_param::getHardMin() {
  return readHardLimit(
      hardMin_, kUnknown, [](GenApi::IFloat& node) { return node.GetMin(); }, "hard-min");
}

float rw_float_param::getHardMax() {
  return readHardLimit(
      hardMax_, kMaxNotRead, [](GenApi::IFloat& node) { return node.GetMax(); }, "hard-max");
}

float rw_float_param::readHardLimit(float& cache, float notRead, double (*read)(GenApi::IFloat&),
                                    const char* label, caller where) {
  if (cache != notRead) {
    return cache;
  }
  const GenApi::CNodeMapRef* nodeMap = provider_->getDevParams();
  if (nodeMap == nullptr) {
    LOG_FROM(where, 2, "fail: param_provider_like::getDevParams");
    return cache;
  }
  cache = static_cast<float>(read(requireNode<GenApi::IFloat>(*nodeMap, name_.c_str(), where)));
  LOG_FROM(where, 4, "done: name:%s, %s:%lf", name_.c_str(), label, static_cast<double>(cache));
  return cache;
}

float rw_float_param::getMin() {
  return std::max(getHardMin(), softMin_);
}

float rw_float_param::getMax() {
  return std::min(getHardMax(), softMax_);
}

void rw_float_param::setMin(float value) {
  requireWithinHardLimits(value);
  softMin_ = value;
}

void rw_float_param::setMax(float value) {
  requireWithinHardLimits(value);
  LOG(4, "done: name:%s, value:%lf)", name_.c_str(), static_cast<double>(value));
  softMax_ = value;
}

void rw_float_param::requireWithinHardLimits(float value, caller where) {
  const float min = getHardMin();
  if (min > value) {
    LOG_FROM(where, 1, "fail: params_error (name:%s, value:%lf, hard-min:%lf)", name_.c_str(),
             static_cast<double>(value), static_cast<double>(min));
    throw params_error();
  }
  const float max = getHardMax();
  if (value > max) {
    LOG_FROM(where, 1, "fail: params_error (name:%s, value:%lf, hard-max:%lf)", name_.c_str(),
             static_cast<double>(value), static_cast<double>(max));
    throw params_error();
  }
}

bool rw_float_param::validate(float value) {
  const float min = getMin();
  const float max = getMax();
  if (min > value || value > max) {
    LOG(2, "fail: name:%s, value:%lf, soft-min:%lf, soft-max:%lf", name_.c_str(), static_cast<double>(value),
        static_cast<double>(min), static_cast<double>(max));
    return false;
  }
  return true;
}

void rw_float_param::setValue(float value) {
  if (!validate(value)) {
    LOG(1, "fail: validate");
    throw external_error();
  }
  const auto wide = static_cast<double>(value);
  requireNode<GenApi::IFloat>(requireNodeMap(provider_), name_.c_str()).SetValue(wide, true);
  if (value_ == kUnknown) {
    LOG(3, "done: PvGenParameterArray::SetFloatValue (name:%s, old-value:unknown, new-value:%lf)",
        name_.c_str(), wide);
  } else {
    LOG(3, "done: PvGenParameterArray::SetFloatValue (name:%s, old-value:%lf, new-value:%lf)", name_.c_str(),
        static_cast<double>(value_), wide);
  }
  value_ = value;
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
