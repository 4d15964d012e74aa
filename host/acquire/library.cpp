#include "host/acquire/library.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <type_traits>

#include "host/acquire/thread_log.h"

namespace host {
namespace {

namespace fs = std::filesystem;

fs::path find_own(const char* what, const std::string& relative) {
  const fs::path directory = executable_directory();
  const fs::path installed = (directory / MEDIAGRABBER_PLUGINS / relative).lexically_normal();
  for (const fs::path& candidate : {directory / relative, installed}) {
    if (fs::exists(candidate)) {
      return candidate;
    }
  }
  throw library_error(fmt::format("{} is neither at {} nor at {}", what, (directory / relative).string(),
                                  installed.string()));
}

fs::path find_given(const char* what, const std::string& path) {
  if (!fs::is_regular_file(path)) {
    throw library_error(fmt::format("{}: there is no file {}", what, path));
  }
  return fs::absolute(path);
}

void* load(const char* what, const fs::path& path, int flags) {
  void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NODELETE | flags);
  if (handle == nullptr) {
    throw library_error(fmt::format("{} {} can't be loaded: {}", what, path.string(), dlerror()));
  }
  return handle;
}

template <class Function>
Function function(void* handle, const char* what, const fs::path& path, const char* name) {
  void* const symbol = dlsym(handle, name);
  if (symbol == nullptr) {
    throw library_error(fmt::format("{} is no {}: it has no function {}", path.string(), what, name));
  }
  return reinterpret_cast<Function>(symbol);
}

}  // namespace

fs::path executable_directory() {
  return fs::read_symlink("/proc/self/exe").parent_path();
}

fs::path find_framework(const std::string& framework) {
  if (framework == "sim") {
    return find_own("the library of simulated cameras", "sim/libGevApi.so.2");
  }
  if (framework == "gige") {
    return find_own("the library of GigE Vision cameras (--framework sim has simulated ones)",
                    "gige/libGevApi.so.2");
  }
  return find_given("--framework", framework);
}

fs::path find_bundle(const std::string& bundle) {
  return bundle.empty() ? find_own("the camera driver bundle", "libdriver-dalsa.so")
                        : find_given("--bundle", bundle);
}

camera_library::camera_library(const fs::path& path) {
  constexpr const char* kWhat = "camera library";
  handle_ = load(kWhat, path, RTLD_GLOBAL);
  const auto take = [&](auto& to, const char* name) {
    to = function<std::remove_reference_t<decltype(to)>>(handle_, kWhat, path, name);
  };
  take(initialize_, "GevApiInitialize");
  take(uninitialize_, "GevApiUninitialize");
  take(closeSockets_, "_CloseSocketAPI");
  take(getCameraList_, "GevGetCameraList");
  take(openCamera_, "GevOpenCamera");
  take(closeCamera_, "GevCloseCamera");
  take(getFeatureValue_, "GevGetFeatureValue");
  take(setFeatureValue_, "GevSetFeatureValue");
}

void* camera_library::find(const char* function) const {
  return dlsym(handle_, function);
}

std::vector<GEV_DEVICE_INTERFACE> camera_library::list() const {
  std::vector<GEV_DEVICE_INTERFACE> cameras(64);
  int count = 0;
  const GEV_STATUS status = getCameraList_(cameras.data(), static_cast<int>(cameras.size()), &count);
  if (status != GEVLIB_OK) {
    throw library_error(
        fmt::format("the camera library can't look for cameras: GevGetCameraList gave {}", status));
  }
  cameras.resize(static_cast<std::size_t>(std::clamp(count, 0, static_cast<int>(cameras.size()))));
  return cameras;
}

library_session::library_session(const camera_library& library) : library_(library) {
  if (const GEV_STATUS status = library.initialize(); status != GEVLIB_OK) {
    throw library_error(fmt::format("the camera library does not start: GevApiInitialize gave {}", status));
  }
}

bundle_session::bundle_session(const fs::path& path) {
  constexpr const char* kWhat = "camera driver bundle";
  void* const handle = load(kWhat, path, RTLD_LOCAL);
  const auto init = function<decltype(&MgBundleInit)>(handle, kWhat, path, "MgBundleInit");
  fini_ = function<decltype(fini_)>(handle, kWhat, path, "MgBundleFini");
  create_ = function<decltype(create_)>(handle, kWhat, path, "MgBundleCreateDevice");
  take_failures();
  if (init() != 1) {
    throw library_error(fmt::format("the camera library does not start ({})", take_failures()));
  }
}

std::string address_text(std::uint32_t address) {
  return fmt::format("{}.{}.{}.{}", address >> 24, address >> 16 & 255, address >> 8 & 255, address & 255);
}

}  // namespace host
