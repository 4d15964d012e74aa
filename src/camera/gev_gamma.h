// Gamma correction and the look-up table (LUT) that carries it.
#ifndef SRC_CAMERA_GEV_GAMMA_H
#define SRC_CAMERA_GEV_GAMMA_H

#include <mediagrabber/property.h>

#include <cstdint>
#include <optional>
#include <string>

#include "core/table.h"
#include "src/camera/param_provider.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

/// What the camera's LUT does.
enum gev_gamma_state : std::uint32_t {
  kGEV_GAMMA_STATE__UNKNOWN = 0,  ///< "lutMode" or "lutType" is missing or no enumeration
  kGEV_GAMMA_STATE__OFF = 1,      ///< no LUT
  kGEV_GAMMA_STATE__GAMMA = 2,    ///< gamma correction
  kGEV_GAMMA_STATE__OTHER = 3     ///< another table
};

/// Reads and changes the LUT state and the gamma value, on the nodes themselves: nothing but the gamma range
/// is kept between calls. Every operation raises internal_error, after a level-1 line, without a node map,
/// unless it says otherwise. The provider is not owned. One thread at a time.
class gamma_api {
 public:
  /// Reads no row. internal_error, after a log line, unless gamma correction is active and its range can be
  /// read.
  gamma_api(param_provider_like* provider, const table<property, table_like>& config);

  /// The state, read from the camera; its exceptions pass.
  gev_gamma_state getGammaState() const;

  /// Switches gamma correction on (kGEV_GAMMA_STATE__GAMMA) or the LUT off (any other value). False, after a
  /// log line, when the camera does not let it; raises nothing of the standard library's, the bundle's or the
  /// node map's.
  bool setGammaState(gev_gamma_state state) const;

  /// The gamma range, read from the camera until that succeeded once. 0 on success; 1 when there is no LUT,
  /// -2 when the range can't be read, both with `min` and `max` untouched. Raises as little as setGammaState.
  int getGammaLimits(float& min, float& max);

  /// Writes a gamma value, switching gamma correction on first where it is off. `state`, when given, is taken
  /// for the current state instead of reading it. False, after a log line except without a LUT, when that
  /// can't be done or the value is out of range; an exception of the write itself passes.
  bool setGamma(float gamma, const gev_gamma_state* state);

 private:
  struct gamma_range {
    float min;
    float max;
  };
  struct lut_nodes {
    GenApi::IEnumeration* mode;
    GenApi::IEnumeration* type;
  };
  bool findLut(lut_nodes& lut, caller where = caller::here()) const;
  GenApi::IEnumeration* findType(caller where) const;
  GenApi::IFloat* findValue(caller where = caller::here()) const;
  std::optional<gamma_range> readRange(caller where) const;
  std::optional<gamma_range> readRangeOfGammaType(caller where) const;
  std::optional<GenICam::gcstring> findOtherType(caller where) const;
  bool writeType(const GenICam::gcstring& text, caller where) const;

  param_provider_like* provider_;
  std::string valueFeature_ = "gammaCorrection";
  std::optional<gamma_range> range_;  // once it was read
};

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
