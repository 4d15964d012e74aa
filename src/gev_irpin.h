// One camera output line that drives an IR illuminator.
#ifndef SRC_GEV_IRPIN_H
#define SRC_GEV_IRPIN_H

#include <cstdint>
#include <string>

#include "src/camera/param_provider.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// Pin of the camera's connector, as the configuration names it.
enum cam_pin_ref : std::uint32_t {
  kCAM_PIN_REF__LINE3 = 5,
  kCAM_PIN_REF__LINE4 = 6,
};

/// What a pulse lasts, as the configuration names it.
enum cam_pin_source : std::uint32_t {
  kCAM_PIN_SOURCE__EXPOSURE = 2,        ///< the whole exposure
  kCAM_PIN_SOURCE__EXPOSURE_RATIO = 3,  ///< a share of it
};

struct gev_irpin_conf {
  std::uint32_t source = 0;          ///< a cam_pin_source; kept, the ratio alone decides the pulse length
  std::int64_t exposureRatio = 100;  ///< pulse length in percent of the exposure time
  bool inverter = false;             ///< whether the output is inverted
};

class gev_irpin {
 public:
  /// Does not touch the camera. `provider` is not owned and must outlive the pin. internal_error, after a
  /// level-1 line, when `ref` is no output line.
  gev_irpin(param_provider_like* provider, cam_pin_ref ref, const gev_irpin_conf& conf);

  /// Programs the line: off for level 0, else a pulse that starts with the exposure (`exposureUsec`
  /// microseconds) and lasts the configured share of it. A delay or duration that the camera does not let be
  /// written, or not that far, stays as it is. internal_error, after a level-1 line, when a feature is
  /// missing; the node map's exceptions pass. What was written before a failure stays.
  void setup(unsigned irLevel, unsigned exposureUsec);

 private:
  void setupDelay(GenApi::IInteger& delay) const;
  void setupDuration(GenApi::IInteger& duration, unsigned exposureUsec) const;

  param_provider_like* provider_;
  std::string lineName_;
  gev_irpin_conf conf_;
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
