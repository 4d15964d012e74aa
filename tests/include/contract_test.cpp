// The numbers that host and bundle exchange, and the layout of the interfaces: what moves does not compile.
#include <mediagrabber/bundle.h>
#include <mediagrabber/property.h>

#include <array>
#include <type_traits>

namespace test {
namespace {

namespace mg = Zavik::Support::MediaGrabber;
using mg::property;
using Zavik::Support::rw_table_like;
using Zavik::Support::table_like;

// clang-format off
constexpr std::array<property, 18> kRows = [] {
  using enum property;
  return std::array{DEV_SERIAL, MISC_STREAM_PACKET_SIZE_BYTES_MAX, VS_ACQ_FPS_HZ, VS_ACQ_FRAME_FORMAT, VS_ACQ_ROTATE180,
                    VS_ACQ_SENSOR_X, VS_ACQ_SENSOR_Y, VS_ACQ_SENSOR_W, VS_ACQ_SENSOR_H, VS_SWEEP_MANUAL_GAMMA,
                    VS_SWEEP_MANUAL_GAIN_DB, VS_SWEEP_MANUAL_EXPOSURE_USEC, VS_SWEEP_MANUAL_IR_LEVEL, PIN_COUNT, PINx_REF,
                    PINx_SOURCE, PINx_INVERTER, PINx_EXPOSURE_RATIO};
}();
// clang-format on
constexpr bool rows_stand() {
  for (std::size_t i = 0; i < kRows.size(); ++i) {
    if (static_cast<std::size_t>(kRows[i]) != i + (i > 14 ? 1 : 0)) {
      return false;
    }
  }
  return sizeof(property) == 1;
}
static_assert(rows_stand());
static_assert(mg::kPENDING_SIGNAL__NONE == 0 && mg::kPENDING_SIGNAL__SIGHUP == 1 &&
              mg::kPENDING_SIGNAL__SIGTERM == 2);
template <class Interface>
constexpr bool kOnlySlots = sizeof(Interface) == sizeof(void*) && std::is_abstract_v<Interface>;
static_assert(kOnlySlots<table_like> && kOnlySlots<rw_table_like> &&
              std::has_virtual_destructor_v<table_like>);
static_assert(kOnlySlots<mg::device_like> && !std::has_virtual_destructor_v<mg::device_like>);
static_assert(kOnlySlots<mg::device_handler_like> && !std::has_virtual_destructor_v<mg::device_handler_like>);
static_assert(kOnlySlots<mg::cam_stream_handler_like> &&
              !std::has_virtual_destructor_v<mg::cam_stream_handler_like>);

}  // namespace
}  // namespace test
