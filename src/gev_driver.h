// The bundle's entry points under their C++ names. The exported functions of bundle.h are these; see there.
#ifndef SRC_GEV_DRIVER_H
#define SRC_GEV_DRIVER_H

#include <mediagrabber/bundle.h>

namespace Zavik::Support::MediaGrabber::Gigev2 {

std::int32_t Driver__Init() noexcept;
void Driver__Fini() noexcept;
device_like* Driver__CreateDevice(device_handler_like* handler, table_like* config) noexcept;

}  // namespace Zavik::Support::MediaGrabber::Gigev2

#endif
