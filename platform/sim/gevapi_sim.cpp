// The C API over the simulated cameras. Each call passes the gate, then checks what it was given, then is
// one call of the camera.
#include <gevapi.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/sim/gate.h"
#include "platform/sim/registry.h"
#include "platform/sim/stream_options.h"

#define GEVAPI_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using sim::camera;
using sim::effect;
using sim::effect_kind;
using sim::registry;

// No exception leaves the library: the status that stands for it.
template <class Work>
GEV_STATUS guarded(Work work) {
  try {
    return work();
  } catch (const GenICam::AccessException&) {
    return GEVLIB_ERROR_FEATURE_REFUSED;
  } catch (const GenICam::OutOfRangeException&) {
    return GEVLIB_ERROR_FEATURE_REFUSED;
  } catch (const GenICam::InvalidArgumentException&) {
    return GEVLIB_ERROR_FEATURE_REFUSED;
  } catch (const std::bad_alloc&) {
    return GEVLIB_ERROR_NO_MEMORY;
  } catch (...) {
    return GEVLIB_ERROR_GENERIC;
  }
}

// `arguments` makes what the journal shows behind the name of the call.
template <class Arguments>
effect pass_call(const char* name, const std::string& serial, Arguments arguments) {
  return sim::pass([&] {
    const std::string told = arguments();
    return sim::passage{name, told.empty() ? name : std::string(name) + " " + told, serial};
  });
}

// A call that is about no camera yet.
template <class Arguments, class Work>
GEV_STATUS call(const char* name, const std::string& serial, Arguments arguments, Work work) {
  const effect fault = pass_call(name, serial, arguments);
  if (fault.kind == effect_kind::status) {
    return static_cast<GEV_STATUS>(fault.number);
  }
  return fault.kind == effect_kind::none ? guarded(work) : GEVLIB_OK;
}

// A call for an open camera, which `work` gets.
template <class Arguments, class Work>
GEV_STATUS camera_call(const char* name, GEV_CAMERA_HANDLE handle, Arguments arguments, Work work) {
  static const std::string nobody;
  const auto called = registry::instance().by_handle(handle);
  return call(name, called == nullptr ? nobody : called->serial(), arguments, [&]() -> GEV_STATUS {
    if (!registry::instance().initialized()) {
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

// ---- Values of features as bytes

template <class Number>
void store(void* to, Number number) {
  std::memcpy(to, &number, sizeof(number));
}

template <class Number>
Number load(const void* from) {
  Number number{};
  std::memcpy(&number, from, sizeof(number));
  return number;
}

bool is_text(genapi::feature& feature) {
  return feature.kind() == genapi::value_kind::string;
}
bool is_float(genapi::feature& feature) {
  return feature.kind() == genapi::value_kind::floating;
}

GEV_STATUS store_text(const std::string& text, std::size_t size, void* to) {
  if (text.size() + 1 > size) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  std::memcpy(to, text.c_str(), text.size() + 1);
  return GEVLIB_OK;
}

GEV_STATUS store_integer(std::int64_t number, std::size_t size, void* to) {
  const bool small = number >= INT32_MIN && number <= INT32_MAX;
  if (size == sizeof(std::int64_t)) {
    store(to, number);
  } else if (size == sizeof(std::int32_t) && small) {
    store(to, static_cast<std::int32_t>(number));
  } else {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  return GEVLIB_OK;
}

GEV_STATUS store_float(double number, std::size_t size, void* to) {
  if (size == sizeof(double)) {
    store(to, number);
  } else if (size == sizeof(float)) {
    store(to, static_cast<float>(number));
  } else {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  return GEVLIB_OK;
}

GEV_STATUS read_feature(genapi::feature& feature, int* type, std::size_t size, void* to) {
  *type = static_cast<int>(feature.kind());
  const genapi::value now = genapi::read(feature, false, false);
  return is_text(feature)    ? store_text(genapi::to_text(now), size, to)
         : is_float(feature) ? store_float(genapi::to_number(now), size, to)
                             : store_integer(genapi::to_integer(now), size, to);
}

// Nothing when the size is not one of that kind.
std::optional<genapi::value> load_value(genapi::feature& feature, std::size_t size, const void* from) {
  if (is_text(feature)) {
    const auto* text = static_cast<const char*>(from);
    return std::string(text, strnlen(text, size));
  }
  if (size == sizeof(std::int32_t)) {
    return is_float(feature) ? genapi::value(static_cast<double>(load<float>(from)))
                             : genapi::value(std::int64_t{load<std::int32_t>(from)});
  }
  if (size == sizeof(std::int64_t)) {
    return is_float(feature) ? genapi::value(load<double>(from)) : genapi::value(load<std::int64_t>(from));
  }
  return std::nullopt;
}

GEV_STATUS write_feature(genapi::feature& feature, std::size_t size, const void* from) {
  const auto wanted = load_value(feature, size, from);
  if (!wanted) {
    return GEVLIB_ERROR_PARAMETER_INVALID;
  }
  genapi::write(feature, *wanted, true);
  return GEVLIB_OK;
}

// The value as the journal shows it; what it is depends on the kind of the feature.
std::string told_value(const std::shared_ptr<camera>& of, const char* name, int size, const void* value) {
  std::string told;
  if (of == nullptr || name == nullptr || size <= 0 || value == nullptr) {
    return told;
  }
  of->with_feature(name, [&](genapi::feature& feature) {
    const auto wanted = load_value(feature, static_cast<std::size_t>(size), value);
    told = wanted ? " " + genapi::to_text(*wanted) : "";
    return GEVLIB_OK;
  });
  return told;
}

}  // namespace

// ---- The library and its cameras

GEVAPI_EXPORT GEV_STATUS GevApiInitialize(void) {
  return call("GevApiInitialize", {}, nothing, [] {
    try {
      registry::instance().initialize();
    } catch (const std::invalid_argument& error) {
      std::fprintf(stderr, "GEVSIM_CAMERAS: %s\n", error.what());
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevApiUninitialize(void) {
  return call("GevApiUninitialize", {}, nothing,
              [] { return registry::instance().uninitialize() ? GEVLIB_OK : GEVLIB_ERROR_NOT_INITIALIZED; });
}

GEVAPI_EXPORT GEV_STATUS _CloseSocketAPI(void) {
  return call("_CloseSocketAPI", {}, nothing, [] { return GEVLIB_OK; });
}

GEVAPI_EXPORT GEV_STATUS GevGetCameraList(GEV_DEVICE_INTERFACE* cameras, int maxCameras, int* numCameras) {
  const auto arguments = [=] { return std::to_string(maxCameras); };
  return call("GevGetCameraList", {}, arguments, [=] {
    if (!registry::instance().initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (numCameras == nullptr || (cameras == nullptr && maxCameras > 0)) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (maxCameras < 0) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    const auto found = registry::instance().cameras();
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
    if (!registry::instance().initialized()) {
      return GEVLIB_ERROR_NOT_INITIALIZED;
    }
    if (camera == nullptr || handle == nullptr) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (mode != GevMonitorMode && mode != GevControlMode && mode != GevExclusiveMode) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    return registry::instance().open(*camera, mode, *handle);
  });
}

GEVAPI_EXPORT GEV_STATUS GevCloseCamera(GEV_CAMERA_HANDLE* handle) {
  auto* closing = handle == nullptr ? nullptr : *handle;
  const GEV_STATUS status = camera_call("GevCloseCamera", closing, nothing, [=](camera&) {
    return registry::instance().close(closing) ? GEVLIB_OK : GEVLIB_ERROR_INVALID_HANDLE;
  });
  if (status == GEVLIB_OK && handle != nullptr) {
    *handle = nullptr;
  }
  return status;
}

// ---- Options and features

GEVAPI_EXPORT GEV_STATUS GevGetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options) {
  return camera_call("GevGetCameraInterfaceOptions", handle, nothing, [=](camera& of) {
    if (options == nullptr) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    *options = of.options();
    return GEVLIB_OK;
  });
}

GEVAPI_EXPORT GEV_STATUS GevSetCameraInterfaceOptions(GEV_CAMERA_HANDLE handle, GEV_CAMERA_OPTIONS* options) {
  const auto arguments = [=] { return options == nullptr ? std::string("(null)") : sim::listed(*options); };
  return camera_call("GevSetCameraInterfaceOptions", handle, arguments, [=](camera& of) {
    return options == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : of.set_options(*options);
  });
}

GEVAPI_EXPORT void* GevGetFeatureNodeMap(GEV_CAMERA_HANDLE handle) {
  static GenApi::CNodeMapRef empty;
  const auto of = registry::instance().by_handle(handle);
  const effect fault = pass_call("GevGetFeatureNodeMap", of == nullptr ? "" : of->serial(), nothing);
  if (fault.kind == effect_kind::empty) {
    return &empty;
  }
  const bool refused = of == nullptr || !registry::instance().initialized();
  return refused || fault.kind != effect_kind::none ? nullptr : of->node_map();
}

GEVAPI_EXPORT GEV_STATUS GevGetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int* type, int size,
                                            void* value) {
  const auto arguments = [=] { return text_or_null(name); };
  return camera_call("GevGetFeatureValue", handle, arguments, [=](camera& of) -> GEV_STATUS {
    if (name == nullptr || type == nullptr || value == nullptr) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (size <= 0) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    return of.with_feature(name, [=](genapi::feature& feature) {
      return read_feature(feature, type, static_cast<std::size_t>(size), value);
    });
  });
}

GEVAPI_EXPORT GEV_STATUS GevSetFeatureValue(GEV_CAMERA_HANDLE handle, const char* name, int size,
                                            void* value) {
  const auto arguments = [=] {
    return text_or_null(name) + told_value(registry::instance().by_handle(handle), name, size, value);
  };
  return camera_call("GevSetFeatureValue", handle, arguments, [=](camera& of) -> GEV_STATUS {
    if (name == nullptr || value == nullptr) {
      return GEVLIB_ERROR_PARAMETER_NULL;
    }
    if (size <= 0) {
      return GEVLIB_ERROR_PARAMETER_INVALID;
    }
    return of.with_feature(name, [=](genapi::feature& feature) {
      return write_feature(feature, static_cast<std::size_t>(size), value);
    });
  });
}

// ---- Frames

GEVAPI_EXPORT GEV_STATUS GevStartTransfer(GEV_CAMERA_HANDLE handle, uint32_t numFrames) {
  const auto arguments = [=] { return std::to_string(numFrames); };
  return camera_call("GevStartTransfer", handle, arguments, [=](camera& of) { return of.start(numFrames); });
}

GEVAPI_EXPORT GEV_STATUS GevAbortTransfer(GEV_CAMERA_HANDLE handle) {
  return camera_call("GevAbortTransfer", handle, nothing, [](camera& of) { return of.abort(); });
}

GEVAPI_EXPORT GEV_STATUS GevFreeTransfer(GEV_CAMERA_HANDLE handle) {
  return camera_call("GevFreeTransfer", handle, nothing, [](camera& of) { return of.free(); });
}

GEVAPI_EXPORT GEV_STATUS GevWaitForNextFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT** frame,
                                             uint32_t timeout_ms) {
  if (frame != nullptr) {
    *frame = nullptr;
  }
  const auto arguments = [=] { return std::to_string(timeout_ms); };
  return camera_call("GevWaitForNextFrame", handle, arguments, [=](camera& of) -> GEV_STATUS {
    return frame == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : of.wait(frame, timeout_ms);
  });
}

GEVAPI_EXPORT GEV_STATUS GevReleaseFrame(GEV_CAMERA_HANDLE handle, GEV_BUFFER_OBJECT* frame) {
  return camera_call("GevReleaseFrame", handle, nothing, [=](camera& of) -> GEV_STATUS {
    return frame == nullptr ? GEVLIB_ERROR_PARAMETER_NULL : of.release(frame);
  });
}
