#include "src/camera/params/int64_param.h"

#include <algorithm>

namespace Zavik::Support::MediaGrabber::Gigev2 {
namespace {

// In unsigned arithmetic, so that every distance and the most negative increment are defined.
bool isMultiple(std::uint64_t distance, std::int64_t increment) {
  const auto bits = static_cast<std::uint64_t>(increment);
  return distance % (increment < 0 ? 0 - bits : bits) == 0;
}

bool isLargerMultiple(std::int64_t value, std::int64_t increment) {
  const auto bits = static_cast<std::uint64_t>(value);
  return increment > 0 ? value > increment && isMultiple(bits, increment)
                       : value < increment && isMultiple(0 - bits, increment);
}

}  // namespace

ro_int64_param::ro_int64_param(param_provider_like* provider, const char* name)
    : provider_(provider), name_(name) {}

std::int64_t ro_int64_param::getValue() {
  auto& node = requireNode<GenApi::IInteger>(requireNodeMap(provider_), name_.c_str());
  value_ = node.GetValue(false, false);
  return value_;
}

std::uint32_t ro_int64_param::getValueUint32() {
  using limits = std::numeric_limits<std::uint32_t>;
  const std::int64_t value = getValue();
  if (value < limits::min()) {
    LOG(1, "fail: static_cast (name:%s, value:%li, min-value:%u)", name_.c_str(), value, limits::min());
    throw external_error();
  }
  if (value > limits::max()) {
    LOG(1, "fail: static_cast (name:%s, value:%li, max-value:%u)", name_.c_str(), value, limits::max());
    throw external_error();
  }
  const auto narrow = static_cast<std::uint32_t>(value);
  LOG(4, "done: name:%s, value:%u", name_.c_str(), narrow);
  return narrow;
}

std::int64_t rw_int64_param::getHardMin() {
  return readHardLimit(
      hardMin_, kUnknown, [](GenApi::IInteger& node) -> std::int64_t { return node.GetMin(); }, "hard-min");
}

std::int64_t rw_int64_param::getHardMax() {
  return readHardLimit(
      hardMax_, kMaxNotRead, [](GenApi::IInteger& node) -> std::int64_t { return node.GetMax(); },
      "hard-max");
}

std::int64_t rw_int64_param::getHardInc() {
  return readHardLimit(
      hardInc_, 0, [](GenApi::IInteger& node) -> std::int64_t { return node.GetInc(); }, "hard-inc");
}

std::int64_t rw_int64_param::readHardLimit(std::int64_t& cache, std::int64_t notRead,
                                           std::int64_t (*read)(GenApi::IInteger&), const char* label,
                                           caller where) {
  if (cache != notRead) {
    return cache;
  }
  const GenApi::CNodeMapRef* nodeMap = provider_->getDevParams();
  if (nodeMap == nullptr) {
    LOG_FROM(where, 2, "fail: param_provider_like::getDevParams");
    return cache;
  }
  cache = read(requireNode<GenApi::IInteger>(*nodeMap, name_.c_str(), where));
  LOG_FROM(where, 4, "done: name:%s, %s:%li", name_.c_str(), label, cache);
  return cache;
}

std::int64_t rw_int64_param::getMin() {
  return std::max(getHardMin(), softMin_);
}

std::int64_t rw_int64_param::getMax() {
  return std::min(getHardMax(), softMax_);
}

std::int64_t rw_int64_param::getInc() {
  const std::int64_t hardInc = getHardInc();
  if (hardInc == 0) {
    return softInc_;
  }
  return hardInc > 0 ? std::max(hardInc, softInc_) : std::min(hardInc, softInc_);
}

void rw_int64_param::setMin(std::int64_t value) {
  requireWithinHardLimits(value);
  softMin_ = value;
}

void rw_int64_param::setMax(std::int64_t value) {
  requireWithinHardLimits(value);
  LOG(4, "done: name:%s, value:%li)", name_.c_str(), value);
  softMax_ = value;
}

void rw_int64_param::requireWithinHardLimits(std::int64_t value, caller where) {
  const std::int64_t min = getHardMin();
  if (min > value) {
    LOG_FROM(where, 1, "fail: params_error (name:%s, value:%li, hard-min:%li)", name_.c_str(), value, min);
    throw params_error();
  }
  const std::int64_t max = getHardMax();
  if (value > max) {
    LOG_FROM(where, 1, "fail: params_error (name:%s, value:%li, hard-max:%li)", name_.c_str(), value, max);
    throw params_error();
  }
}

void rw_int64_param::setInc(std::int64_t value) {
  const std::int64_t hardInc = getHardInc();
  if (hardInc != 0 && !isLargerMultiple(value, hardInc)) {
    LOG(1, "fail: params_error (name:%s, value:%li, hard-inc:%li)", name_.c_str(), value, hardInc);
    throw params_error();
  }
  softInc_ = value;
}

bool rw_int64_param::validate(std::int64_t value) {
  const std::int64_t min = getMin();
  const std::int64_t max = getMax();
  if (value < min || value > max) {
    LOG(2, "fail: name:%s, value:%li, soft-min:%li, soft-max:%li", name_.c_str(), value, min, max);
    return false;
  }
  const std::int64_t inc = getInc();
  if (inc == 0) {
    return true;
  }
  const std::int64_t base = getHardMin();
  if (base == kUnknown) {
    return true;
  }
  if (!isMultiple(static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(base), inc)) {
    LOG(2, "fail: name:%s, value:%li, hard-min:%li, soft-inc:%li", name_.c_str(), value, base, inc);
    return false;
  }
  return true;
}

void rw_int64_param::setValue(std::int64_t value) {
  if (!validate(value)) {
    LOG(1, "fail: validate");
    throw external_error();
  }
  requireNode<GenApi::IInteger>(requireNodeMap(provider_), name_.c_str()).SetValue(value, true);
  if (value_ == kUnknown) {
    LOG(3, "done: PvGenInteger::SetValue (name:%s, old-value:unknown, new-value:%li)", name_.c_str(), value);
  } else {
    LOG(3, "done: PvGenInteger::SetValue (name:%s, old-value:%li, new-value:%li)", name_.c_str(), value_,
        value);
  }
  value_ = value;
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
