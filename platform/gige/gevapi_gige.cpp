// The C API over cameras on the network. Each call checks its arguments, then is one call of the camera.
#include <gevapi.h>

#include <algorithm>
#include <stdexcept>

#include "core/log.h"
#include "platform/gev/feature_bytes.h"
#include "platform/gev/status_of_call.h"
#include "platform/gige/camera_registry.h"
#include "platform/gige/control/control_error.h"

#define GEVAPI_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using gige::camera_registry;
using gige::network_camera;

// The status of a camera that could not be opened.
GEV_STATUS status_of(const gige::control_error& error) {
  if (dynamic_cast<const gige::control_denied*>(&error) != nullptr) {
    return GEVLIB_ERROR_ACCESS_DENIED;
  }
  if (dynamic_cast<const gige::wait_cancelled*>(&error) != nullptr) {
    return GEVLIB_ERROR_ABORTED;
  }
  if (dynamic_cast<const gige::camera_lost*>(&error) != nullptr) {
    return GEVLIB_ERROR_DEVICE_LOST;
  }
  if (dynamic_cast<const gige::not_answered*>(&error) != nullptr) {
    return GEVLIB_ERROR_DEVICE_NOT_FOUND;
  }
  return GEVLIB_ERROR_GENERIC;
}

// An exception becomes a status, and its text a log line in the name of the call.
template <class Work>
GEV_STATUS guarded_call(Work work, Zavik::caller where = Zavik::caller::here()) {
  return gev::status_of_call([&]() -> GEV_STATUS {
    try {
      return work();
    } catch (const gige::control_error& error) {
      LOG_FROM(where, 1, "fail: %s", error.what());
      return status_of(error);
    } catch (const GenICam::GenericException& error) {
      LOG_FROM(where, 1, "fail: %s", error.what());
      throw;
    } catch (const std::exception& error) {
      LOG_FROM(where, 1, "fail: %s", error.what());
      throw;
    }
  });
}

// A call for an open camera, which is the argument of `work`.
template <class Work>
GEV_STATUS camera_call(GEV_CAMERA_HANDLE handle, Work work, Zavik::caller where = Zavik::caller::here()) {
  const auto findAndWork = [&]() -> GEV_STATUS {
    std::shared_ptr<network_camera> called;
    const GEV_STATUS status = camera_registry::instance().find(handle, called);
    return status == GEVLIB_OK ? work(*called) : status;
  };
  return guarded_call(findAndWork, where);
}

}  // namespace

// ---- The library and its cameras

GEVAPI_EXPORT GEV_STATUS GevApiInitialize(void) {
  return guarded_call([] {
    try {
      camera_registry::instance().initialize();
    } catch (const std::invalid_argument& error) {
      LOG(1, "fail: %s", error.what());
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevApiUninitialize(void) {
  return camera_registry::instance().uninitialize() ? GEVLIB_OK : GEVLIB_ERROR_NOT_INITIALIZED;
}

// No socket is shared between cameras.
GEVAPI_EXPORT GEV_STATUS _CloseSocketAPI(void) {
  return GEVLIB_OK;
}

GEVAPI_EXPORT GEV_STATUS GevGetCameraList(GEV_DEVICE_INTERFACE* cameras, int maxCameras, int* numCameras) {
  return guarded_call([=] {
    if (!camera_registry::instance().is_initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (numCameras == nullptr || (cameras == nullptr && maxCameras > 0)) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (maxCameras < 0) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    const auto found = camera_registry::instance().search_networks();
    *numCameras = static_cast<int>(found.size());
    std::transform(found.begin(), found.begin() + std::min(maxCameras, *numCameras), cameras,
                   gige::record_of);
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevOpenCamera(GEV_DEVICE_INTERFACE* camera, GevAccessMode mode,
                                       GEV_CAMERA_HANDLE* handle) {
  if (handle != nullptr) {
    *handle = nullptr;
  }
  return guarded_call([=]() -> GEV_STATUS {
    if (!camera_registry::instance().is_initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (camera == nullptr || handle == nullptr) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (mode != GevMonitorMode && mode != GevControlMode && mode != GevExclusiveMode) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    *handle = camera_registry::instance().open(*camera, mode);
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevCloseCamera(GEV_CAMERA_HANDLE* handle) {
  return guarded_call([=]() -> GEV_STATUS {
    if (!camera_registry::instance().is_initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (handle == nullptr || !camera_registry::instance().close(*handle)) {
      return GEVLIB_ERROR_INVALID_HANDLE;
    }
    *handle = nullptr;
    return GEVLIB_OK;
  });
}

// ---- Options and features

GEVAPI_EXPORT GEV_STATUS GevGetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options) {
  return camera_call(handle, [=](network_camera& camera) { return camera.read_options(options); });
}

GEVAPI_EXPORT GEV_STATUS GevSetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options) {
  return camera_call(handle, [=](network_camera& camera) { return camera.write_options(options); });
}

GEVAPI_EXPORT void* GevGetFeatureNodeMap(GEV_CAMERA_HANDLE handle) {
  std::shared_ptr<network_camera> of;
  return camera_registry::instance().find(handle, of) == GEVLIB_OK ? of->node_map() : nullptr;
}

GEVAPI_EXPORT GEV_STATUS GevGetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int* type, int size,
                                            void* value) {
  return camera_call(
      handle, [=](network_camera& camera) { return gev::read_feature(camera, name, type, size, value); });
}

GEVAPI_EXPORT GEV_STATUS GevSetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int size,
                                            void* value) {
  return camera_call(handle,
                     [=](network_camera& camera) { return gev::write_feature(camera, name, size, value); });
}

// ---- Frames

GEVAPI_EXPORT GEV_STATUS GevStartTransfer(GEV_CAMERA_HANDLE handle, uint32_t numFrames) {
  return camera_call(handle, [=](network_camera& camera) { return camera.start(numFrames); });
}

GEVAPI_EXPORT GEV_STATUS GevAbortTransfer(GEV_CAMERA_HANDLE handle) {
  return camera_call(handle, [](network_camera& camera) { return camera.abort(); });
}

GEVAPI_EXPORT GEV_STATUS GevFreeTransfer(GEV_CAMERA_HANDLE handle) {
  return camera_call(handle, [](network_camera& camera) { return camera.free(); });
}

GEVAPI_EXPORT GEV_STATUS GevWaitForNextFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT** frame,
                                             uint32_t timeout_ms) {
  if (frame != nullptr) {
    *frame = nullptr;
  }
  return camera_call(handle, [=](network_camera& camera) -> GEV_STATUS {
    return frame == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : camera.wait(frame, timeout_ms);
  });
}

GEVAPI_EXPORT GEV_STATUS GevReleaseFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT* frame) {
  return camera_call(handle, [=](network_camera& camera) -> GEV_STATUS {
    return frame == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : camera.release(frame);
  });
}
