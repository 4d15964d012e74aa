// gevapi.h over the simulated cameras. Each call is an event for journal and faults, then checks its
// arguments, then is one call of the registry or a camera.
#include <gevapi.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "platform/gev/feature_bytes.h"
#include "platform/gev/status_of_call.h"
#include "platform/gev/stream_options.h"
#include "platform/sim/camera_registry.h"
#include "platform/sim/interception.h"

#define GEVAPI_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using sim::camera_registry;
using sim::effect;
using sim::effect_kind;
using sim::simulated_camera;

// `arguments` makes the text behind the name of the call in the journal.
template <class Arguments>
effect intercept_call(const char* name, const std::string& serial, Arguments arguments) {
  return sim::intercept([&] {
    const std::string text = arguments();
    return sim::event{name, text.empty() ? name : std::string(name) + " " + text, serial};
  });
}

// A call, of the camera with that serial number if it has one.
template <class Arguments, class Work>
GEV_STATUS call(const char* name, const std::string& serial, Arguments arguments, Work work) {
  const effect fault = intercept_call(name, serial, arguments);
  if (fault.kind == effect_kind::status) {
    return static_cast<GEV_STATUS>(fault.number);
  }
  return fault.kind == effect_kind::none ? gev::status_of_call(work) : GEVLIB_OK;
}

// A call of an open camera, which is passed to `work`.
template <class Arguments, class Work>
GEV_STATUS camera_call(const char* name, GEV_CAMERA_HANDLE handle, Arguments arguments, Work work) {
  static const std::string noSerial;
  const auto called = camera_registry::instance().by_handle(handle);
  return call(name, called == nullptr ? noSerial : called->serial(), arguments, [&]() -> GEV_STATUS {
    if (!camera_registry::instance().initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    return called == nullptr ? GEVLIB_ERROR_INVALID_HANDLE : work(*called);
  });
}

std::string nothing() {
  return {};
}

std::string text_or_null(const char* text) {
  return text == nullptr ? "(null)" : text;
}

// The value as the journal shows it. How its bytes are read depends on the kind of the feature.
std::string value_text(const std::shared_ptr<simulated_camera>& of, const char* name, int size,
                       const void* value) {
  std::string text;
  if (of == nullptr || name == nullptr || size <= 0 || value == nullptr) {
    return text;
  }
  of->with_feature(name, [&](gev::feature& feature) {
    const auto wanted = gev::value_of_bytes(feature, static_cast<std::size_t>(size), value);
    text = wanted ? " " + gev::to_text(*wanted) : "";
    return GEVLIB_OK;
  });
  return text;
}

}  // namespace

// ---- The library and its cameras

GEVAPI_EXPORT GEV_STATUS GevApiInitialize(void) {
  return call("GevApiInitialize", {}, nothing, [] {
    try {
      camera_registry::instance().initialize();
    } catch (const std::invalid_argument& error) {
      std::fprintf(stderr, "SIM_CAMERAS: %s\n", error.what());
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevApiUninitialize(void) {
  return call("GevApiUninitialize", {}, nothing, [] {
    return camera_registry::instance().uninitialize() ? GEVLIB_OK : GEVLIB_ERROR_NOT_INITIALIZED;
  });
}

GEVAPI_EXPORT GEV_STATUS _CloseSocketAPI(void) {
  return call("_CloseSocketAPI", {}, nothing, [] { return GEVLIB_OK; });
}

GEVAPI_EXPORT GEV_STATUS GevGetCameraList(GEV_DEVICE_INTERFACE* cameras, int maxCameras, int* numCameras) {
  const auto arguments = [=] { return std::to_string(maxCameras); };
  return call("GevGetCameraList", {}, arguments, [=] {
    if (!camera_registry::instance().initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (numCameras == nullptr || (cameras == nullptr && maxCameras > 0)) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (maxCameras < 0) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    const auto found = camera_registry::instance().cameras();
    *numCameras = static_cast<int>(found.size());
    for (int at = 0; at < std::min(maxCameras, *numCameras); ++at) {
      cameras[at] = found[static_cast<std::size_t>(at)]->record();
    }
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevOpenCamera(GEV_DEVICE_INTERFACE* camera, GevAccessMode mode,
                                       GEV_CAMERA_HANDLE* handle) {
  if (handle != nullptr) {
    *handle = nullptr;
  }
  const std::string serial = camera == nullptr ? "" : sim::text_of(camera->serial);
  const auto arguments = [&] { return serial + " mode:" + std::to_string(mode); };
  return call("GevOpenCamera", serial, arguments, [&]() -> GEV_STATUS {
    if (!camera_registry::instance().initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (camera == nullptr || handle == nullptr) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (mode != GevMonitorMode && mode != GevControlMode && mode != GevExclusiveMode) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    return camera_registry::instance().open(*camera, mode, *handle);
  });
}

GEVAPI_EXPORT GEV_STATUS GevCloseCamera(GEV_CAMERA_HANDLE* handle) {
  auto* closing = handle == nullptr ? nullptr : *handle;
  const GEV_STATUS status = camera_call("GevCloseCamera", closing, nothing, [=](simulated_camera&) {
    return camera_registry::instance().close(closing) ? GEVLIB_OK : GEVLIB_ERROR_INVALID_HANDLE;
  });
  if (status == GEVLIB_OK && handle != nullptr) {
    *handle = nullptr;
  }
  return status;
}

// ---- Options and features

GEVAPI_EXPORT GEV_STATUS GevGetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options) {
  return camera_call("GevGetCameraInterfaceOptions", handle, nothing,
                     [=](simulated_camera& of) { return of.read_options(options); });
}

GEVAPI_EXPORT GEV_STATUS GevSetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options) {
  const auto arguments = [=] { return options == nullptr ? std::string("(null)") : gev::listed(*options); };
  return camera_call("GevSetCameraInterfaceOptions", handle, arguments,
                     [=](simulated_camera& of) { return of.write_options(options); });
}

GEVAPI_EXPORT void* GevGetFeatureNodeMap(GEV_CAMERA_HANDLE handle) {
  static GenApi::CNodeMapRef empty;
  const auto of = camera_registry::instance().by_handle(handle);
  const effect fault = intercept_call("GevGetFeatureNodeMap", of == nullptr ? "" : of->serial(), nothing);
  if (fault.kind == effect_kind::empty) {
    return &empty;
  }
  const bool refused = of == nullptr || !camera_registry::instance().initialized();
  return refused || fault.kind != effect_kind::none ? nullptr : of->node_map();
}

GEVAPI_EXPORT GEV_STATUS GevGetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int* type, int size,
                                            void* value) {
  const auto arguments = [=] { return text_or_null(name); };
  return camera_call("GevGetFeatureValue", handle, arguments,
                     [=](simulated_camera& of) { return gev::read_feature(of, name, type, size, value); });
}

GEVAPI_EXPORT GEV_STATUS GevSetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int size,
                                            void* value) {
  const auto arguments = [=] {
    return text_or_null(name) + value_text(camera_registry::instance().by_handle(handle), name, size, value);
  };
  return camera_call("GevSetFeatureValue", handle, arguments,
                     [=](simulated_camera& of) { return gev::write_feature(of, name, size, value); });
}

// ---- Frames

GEVAPI_EXPORT GEV_STATUS GevStartTransfer(GEV_CAMERA_HANDLE handle, uint32_t numFrames) {
  const auto arguments = [=] { return std::to_string(numFrames); };
  return camera_call("GevStartTransfer", handle, arguments,
                     [=](simulated_camera& of) { return of.start(numFrames); });
}

GEVAPI_EXPORT GEV_STATUS GevAbortTransfer(GEV_CAMERA_HANDLE handle) {
  return camera_call("GevAbortTransfer", handle, nothing, [](simulated_camera& of) { return of.abort(); });
}

GEVAPI_EXPORT GEV_STATUS GevFreeTransfer(GEV_CAMERA_HANDLE handle) {
  return camera_call("GevFreeTransfer", handle, nothing, [](simulated_camera& of) { return of.free(); });
}

GEVAPI_EXPORT GEV_STATUS GevWaitForNextFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT** frame,
                                             uint32_t timeout_ms) {
  if (frame != nullptr) {
    *frame = nullptr;
  }
  const auto arguments = [=] { return std::to_string(timeout_ms); };
  return camera_call("GevWaitForNextFrame", handle, arguments, [=](simulated_camera& of) -> GEV_STATUS {
    return frame == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : of.wait(frame, timeout_ms);
  });
}

GEVAPI_EXPORT GEV_STATUS GevReleaseFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT* frame) {
  return camera_call("GevReleaseFrame", handle, nothing, [=](simulated_camera& of) -> GEV_STATUS {
    return frame == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : of.release(frame);
  });
}
