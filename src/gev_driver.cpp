#include "src/gev_driver.h"

#include <gevapi.h>

#include "src/gev_device.h"

namespace Zavik::Support::MediaGrabber::Gigev2 {

std::int32_t Driver__Init() noexcept {
  const GEV_STATUS status = GevApiInitialize();
  if (status != 0) {
    LOG(1, "fail: GevApiInitialize (answer:0x%X)", static_cast<unsigned>(status));
    return 0;
  }
  LOG(4, "done");
  return 1;
}

void Driver__Fini() noexcept {
  GevApiUninitialize();
  _CloseSocketAPI();
}

device_like* Driver__CreateDevice(device_handler_like* handler, table_like* config) noexcept {
  LOG(5, "exec");
  try {
    device_like* created = Device__Create(handler, config);
    LOG(4, "done");
    return created;
  } catch (const GenICam::GenericException&) {
    LOG(1, "fail");
  } catch (const generic_error&) {
    LOG(1, "fail");
  } catch (const std::exception& error) {
    LOG(1, "fail: exception <%s>", error.what());
  }
  return nullptr;
}

}  // namespace Zavik::Support::MediaGrabber::Gigev2

namespace gigev2 = Zavik::Support::MediaGrabber::Gigev2;

std::int32_t MgBundleInit() noexcept {
  return gigev2::Driver__Init();
}

void MgBundleFini() noexcept {
  gigev2::Driver__Fini();
}

Zavik::Support::MediaGrabber::device_like* MgBundleCreateDevice(
    Zavik::Support::MediaGrabber::device_handler_like* handler, Zavik::Support::table_like* table) noexcept {
  return gigev2::Driver__CreateDevice(handler, table);
}
