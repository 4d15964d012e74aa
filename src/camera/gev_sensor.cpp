#include "src/camera/gev_sensor.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {
namespace {

std::int64_t requireInt64(const table<property, table_like>& config, property row, const char* rowName,
                          caller where = caller::here()) {
  std::int64_t value = 0;
  if (!config.getInt64(row, 0, value)) {
    LOG_FROM(where, 1, "fail: %s", rowName);
    throw params_error();
  }
  return value;
}

// Offset and size restrict each other, so that the camera may take them in one order only, which depends on
// the window that it has.
void setWindow(rw_int64_param& offset, std::int64_t offsetValue, rw_int64_param& size, std::int64_t sizeValue,
               caller where = caller::here()) {
  try {
    offset.setValue(offsetValue);
    size.setValue(sizeValue);
    return;
  } catch (const GenICam::GenericException&) {
    // Not a failure yet: the other order is next.
  }
  try {
    size.setValue(sizeValue);
    offset.setValue(offsetValue);
  } catch (const GenICam::GenericException& error) {
    LOG_FROM(where, 1, "fail: exception <%s>", error.what());
    throw internal_error();
  }
}

}  // namespace

sensor_api::sensor_api(param_provider_like* provider, const table<property, table_like>& config)
    : x_(provider),
      y_(provider),
      w_(provider),
      h_(provider),
      reverseX_(provider, "ReverseX", "True", "False"),
      reverseY_(provider, "ReverseY", "True", "False") {
  LOG(5, "exec");
  const std::int64_t x = requireInt64(config, property::VS_ACQ_SENSOR_X, "VS_ACQ_SENSOR_X");
  const std::int64_t y = requireInt64(config, property::VS_ACQ_SENSOR_Y, "VS_ACQ_SENSOR_Y");
  const std::int64_t w = requireInt64(config, property::VS_ACQ_SENSOR_W, "VS_ACQ_SENSOR_W");
  const std::int64_t h = requireInt64(config, property::VS_ACQ_SENSOR_H, "VS_ACQ_SENSOR_H");
  bool rotate180 = false;
  if (!config.getBool(property::VS_ACQ_ROTATE180, 0, rotate180)) {
    LOG(1, "fail: VS_ACQ_ROTATE180");
    throw params_error();
  }

  setWindow(x_, x, w_, w);
  setWindow(y_, y, h_, h);
  // Mirrored in both directions is turned by 180 degrees.
  reverseX_.setValue(rotate180);
  reverseY_.setValue(rotate180);
  LOG(4, "done");
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2
