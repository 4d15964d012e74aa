#include "src/gev_irbox.h"

#include <mediagrabber/property.h>

#include "core/numeric.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {
namespace {

using config_view = table<property, table_like>;

// How the configuration names the polarity of an output.
constexpr std::uint32_t kNotInverted = 1;
constexpr std::uint32_t kInverted = 2;

template <class Code>
Code requirePinCode(const config_view& config, property row, const char* rowName, unsigned pin,
                    caller where) {
  Code code{};
  if (!config.getIntEnum(row, static_cast<std::uint8_t>(pin), code)) {
    LOG_FROM(where, 1, "fail: table::getIntEnum (row:%s, col:%u)", rowName, pin);
    throw internal_error();
  }
  return code;
}

bool isInverted(std::uint32_t inverter, caller where) {
  if (inverter != kNotInverted && inverter != kInverted) {
    LOG_FROM(where, 1, "fail: unsupported (pin-inverter:%u)", inverter);
    throw internal_error();
  }
  return inverter == kInverted;
}

std::int64_t requireExposureRatio(const config_view& config, unsigned pin, caller where) {
  std::int64_t ratio = 0;
  if (!config.getInt64(property::PINx_EXPOSURE_RATIO, static_cast<std::uint8_t>(pin), ratio)) {
    LOG_FROM(where, 1, "fail: table::getInt64 (row:PINx_EXPOSURE_RATIO)");
    throw internal_error();
  }
  return ratio;
}

gev_irpin readPin(param_provider_like* provider, const config_view& config, unsigned pin, caller where) {
  const auto ref = requirePinCode<cam_pin_ref>(config, property::PINx_REF, "PINx_REF", pin, where);
  const auto inverter =
      requirePinCode<std::uint32_t>(config, property::PINx_INVERTER, "PINx_INVERTER", pin, where);
  gev_irpin_conf conf;
  conf.inverter = isInverted(inverter, where);
  conf.source = requirePinCode<std::uint32_t>(config, property::PINx_SOURCE, "PINx_SOURCE", pin, where);
  if (conf.source == kCAM_PIN_SOURCE__EXPOSURE_RATIO) {
    conf.exposureRatio = requireExposureRatio(config, pin, where);
    if (conf.exposureRatio == 100) {
      conf.source = kCAM_PIN_SOURCE__EXPOSURE;
    }
  }
  if (conf.source != kCAM_PIN_SOURCE__EXPOSURE && conf.source != kCAM_PIN_SOURCE__EXPOSURE_RATIO) {
    LOG_FROM(where, 1, "fail: unsupported (pin-source:%u, col:%u)", conf.source, pin);
    throw internal_error();
  }
  return {provider, ref, conf};
}

}  // namespace

gev_irbox::gev_irbox(param_provider_like* provider, table_like* config) {
  LOG(4, "exec");
  const config_view view(config);
  std::int64_t pinCount = 0;
  if (!view.getInt64(property::PIN_COUNT, 0, pinCount)) {
    LOG(4, "done: pin-count:0");
    return;
  }
  // A column is 8 bits wide: from pin 256 on the columns come round again.
  for (unsigned pin = 0; pin < pinCount; ++pin) {
    pins_.push_back(readPin(provider, view, pin, caller::here()));
  }
  LOG(4, "done");
}

void gev_irbox::setup(table_like* config) {
  LOG(4, "exec");
  const config_view view(config);
  std::int64_t irLevel = 0;
  if (!view.getInt64(property::VS_SWEEP_MANUAL_IR_LEVEL, 0, irLevel)) {
    LOG(1, "fail: table::getInt64 (row:VS_SWEEP_MANUAL_IR_LEVEL)");
    throw internal_error();
  }
  float exposureUs = 0;
  if (!view.getFloat(property::VS_SWEEP_MANUAL_EXPOSURE_USEC, 0, exposureUs)) {
    LOG(1, "fail: table::getFloat (row:VS_SWEEP_MANUAL_EXPOSURE_USEC)");
    throw internal_error();
  }
  const auto exposureUsec = static_cast<unsigned>(truncateTo<std::int64_t>(static_cast<double>(exposureUs)));
  for (gev_irpin& pin : pins_) {
    pin.setup(static_cast<unsigned>(irLevel), exposureUsec);
  }
  LOG(4, "done");
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
