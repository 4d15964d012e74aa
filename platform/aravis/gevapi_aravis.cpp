// The C API over cameras on the network. Each call checks what it was given, then is one call of the camera.
#include <gevapi.h>

#include <algorithm>
#include <stdexcept>

#include "core/log.h"
#include "platform/aravis/library.h"
#include "platform/gev/by_name.h"

#define GEVAPI_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using gige::camera;
using gige::library;

// An exception becomes a status, and what it says a line in the log.
template <class Work>
GEV_STATUS told(const char* call, Work work) {
  return gev::guarded([&]() -> GEV_STATUS {
    try {
      return work();
    } catch (const GenICam::GenericException& error) {
      LOG(1, "fail: %s: %s", call, error.what());
      throw;
    } catch (const std::exception& error) {
      LOG(1, "fail: %s: %s", call, error.what());
      throw;
    }
  });
}

// A call for an open camera, which `work` gets.
template <class Work>
GEV_STATUS camera_call(const char* name, GEV_CAMERA_HANDLE handle, Work work) {
  return told(name, [&]() -> GEV_STATUS {
    std::shared_ptr<camera> called;
    const GEV_STATUS status = library::instance().find(handle, called);
    return status == GEVLIB_OK ? work(*called) : status;
  });
}

}  // namespace

// ---- The library and its cameras

GEVAPI_EXPORT GEV_STATUS GevApiInitialize(void) {
  return told("GevApiInitialize", [] {
    try {
      library::instance().initialize();
    } catch (const std::invalid_argument& error) {
      LOG(1, "fail: %s", error.what());
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevApiUninitialize(void) {
  return library::instance().uninitialize() ? GEVLIB_OK : GEVLIB_ERROR_NOT_INITIALIZED;
}

// No socket is shared between cameras.
GEVAPI_EXPORT GEV_STATUS _CloseSocketAPI(void) {
  return GEVLIB_OK;
}

GEVAPI_EXPORT GEV_STATUS GevGetCameraList(GEV_DEVICE_INTERFACE* cameras, int maxCameras, int* numCameras) {
  return told("GevGetCameraList", [=] {
    if (!library::instance().initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (numCameras == nullptr || (cameras == nullptr && maxCameras > 0)) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (maxCameras < 0) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    const auto found = library::instance().search();
    *numCameras = static_cast<int>(found.size());
    std::copy_n(found.begin(), std::min(maxCameras, *numCameras), cameras);
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevOpenCamera(GEV_DEVICE_INTERFACE* camera, GevAccessMode mode,
                                       GEV_CAMERA_HANDLE* handle) {
  if (handle != nullptr) {
    *handle = nullptr;
  }
  return told("GevOpenCamera", [=]() -> GEV_STATUS {
    if (!library::instance().initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (camera == nullptr || handle == nullptr) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (mode != GevMonitorMode && mode != GevControlMode && mode != GevExclusiveMode) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    return library::instance().open(*camera, mode, *handle);
  });
}

GEVAPI_EXPORT GEV_STATUS GevCloseCamera(GEV_CAMERA_HANDLE* handle) {
  return told("GevCloseCamera", [=]() -> GEV_STATUS {
    if (!library::instance().initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (handle == nullptr || !library::instance().close(*handle)) {
      return GEVLIB_ERROR_INVALID_HANDLE;
    }
    *handle = nullptr;
    return GEVLIB_OK;
  });
}

// ---- Options and features

GEVAPI_EXPORT GEV_STATUS GevGetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options) {
  return camera_call("GevGetCameraInterfaceOptions", handle, [=](camera& of) {
    if (options == nullptr) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    *options = of.options();
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevSetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options) {
  return camera_call("GevSetCameraInterfaceOptions", handle, [=](camera& of) {
    return options == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : of.set_options(*options);
  });
}

GEVAPI_EXPORT void* GevGetFeatureNodeMap(GEV_CAMERA_HANDLE handle) {
  std::shared_ptr<camera> of;
  return library::instance().find(handle, of) == GEVLIB_OK ? of->node_map() : nullptr;
}

GEVAPI_EXPORT GEV_STATUS GevGetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int* type, int size,
                                            void* value) {
  return camera_call("GevGetFeatureValue", handle,
                     [=](camera& of) { return gev::read_feature(of, name, type, size, value); });
}

GEVAPI_EXPORT GEV_STATUS GevSetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int size,
                                            void* value) {
  return camera_call("GevSetFeatureValue", handle,
                     [=](camera& of) { return gev::write_feature(of, name, size, value); });
}

// ---- Frames

GEVAPI_EXPORT GEV_STATUS GevStartTransfer(GEV_CAMERA_HANDLE handle, uint32_t numFrames) {
  return camera_call("GevStartTransfer", handle, [=](camera& of) { return of.start(numFrames); });
}

GEVAPI_EXPORT GEV_STATUS GevAbortTransfer(GEV_CAMERA_HANDLE handle) {
  return camera_call("GevAbortTransfer", handle, [](camera& of) { return of.abort(); });
}

GEVAPI_EXPORT GEV_STATUS GevFreeTransfer(GEV_CAMERA_HANDLE handle) {
  return camera_call("GevFreeTransfer", handle, [](camera& of) { return of.free(); });
}

GEVAPI_EXPORT GEV_STATUS GevWaitForNextFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT** frame,
                                             uint32_t timeout_ms) {
  if (frame != nullptr) {
    *frame = nullptr;
  }
  return camera_call("GevWaitForNextFrame", handle, [=](camera& of) -> GEV_STATUS {
    return frame == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : of.wait(frame, timeout_ms);
  });
}

GEVAPI_EXPORT GEV_STATUS GevReleaseFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT* frame) {
  return camera_call("GevReleaseFrame", handle, [=](camera& of) -> GEV_STATUS {
    return frame == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : of.release(frame);
  });
}
