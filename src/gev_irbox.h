// The camera's IR illuminator outputs, all together.
#ifndef SRC_GEV_IRBOX_H
#define SRC_GEV_IRBOX_H

#include <vector>

#include "core/table.h"
#include "src/gev_irpin.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

class gev_irbox {
 public:
  /// Reads PIN_COUNT and the PINx_ rows; does not touch the camera. `provider` is not owned and must outlive
  /// the box. unsupported_error for a null table; internal_error, after a level-1 line, when a pin's row is
  /// absent or not supported.
  gev_irbox(param_provider_like* provider, table_like* config);

  /// Drives every output, in order, from VS_SWEEP_MANUAL_IR_LEVEL and VS_SWEEP_MANUAL_EXPOSURE_USEC, which
  /// are required also without pins. unsupported_error for a null table; internal_error, after a level-1
  /// line, when a row is absent; what a pin raises passes, and leaves the later ones as they were.
  void setup(table_like* config);

 private:
  std::vector<gev_irpin> pins_;
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
