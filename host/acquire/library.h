// The libraries that are opened by path: the camera library, and the camera driver bundle that uses it.
#ifndef HOST_ACQUIRE_LIBRARY_H
#define HOST_ACQUIRE_LIBRARY_H

#include <gevapi.h>
#include <mediagrabber/bundle.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

/// A library that is not there or is not what it should be; the text says which, and what would be right.
class library_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Which libraries the command line asks for.
struct library_choice {
  std::string framework = "gige";
  std::string bundle;

  bool is_simulated() const { return framework == "sim"; }
};

/// Where the libraries are. `framework` is "sim", "gige" or a path; an empty `bundle` is the one that
/// belongs to this program. They are looked for beside the executable, as in a build tree
/// (sim/libGevApi.so.2, gige/libGevApi.so.2, libdriver-dalsa.so), and then where an
/// installation has them (../lib/mediagrabber). library_error when one is not there.
std::filesystem::path find_framework(const std::string& framework);
std::filesystem::path find_bundle(const std::string& bundle);

/// The directory of this program's executable.
std::filesystem::path executable_directory();

/// The camera library. It stays loaded until the process ends: camera libraries start threads and register
/// types that do not survive unloading. The same holds for the bundle.
class camera_library {
 public:
  /// Loads it and makes its functions visible to the bundle that is loaded next. library_error.
  explicit camera_library(const std::filesystem::path& path);

  GEV_STATUS initialize() const { return initialize_(); }
  void uninitialize() const {
    uninitialize_();
    closeSockets_();
  }
  /// The address of one of its functions; null when it has none of that name.
  void* find(const char* function) const;
  /// The cameras that answer now; between initialize (or `bundle_session`) and its counterpart. library_error
  /// when the library refuses.
  std::vector<GEV_DEVICE_INTERFACE> list() const;

 private:
  void* handle_;
  decltype(&GevApiInitialize) initialize_;
  decltype(&GevApiUninitialize) uninitialize_;
  decltype(&_CloseSocketAPI) closeSockets_;
  decltype(&GevGetCameraList) getCameraList_;

  friend class open_camera;
  decltype(&GevOpenCamera) openCamera_;
  decltype(&GevCloseCamera) closeCamera_;
  decltype(&GevGetFeatureValue) getFeatureValue_;
  decltype(&GevSetFeatureValue) setFeatureValue_;
};

/// The camera library alone, initialized from construction to destruction: for what needs no bundle.
class library_session {
 public:
  /// library_error when it does not start.
  explicit library_session(const camera_library& library);
  ~library_session() { library_.uninitialize(); }
  library_session(const library_session&) = delete;
  library_session& operator=(const library_session&) = delete;

 private:
  const camera_library& library_;
};

/// The bundle, started from construction to destruction. Needs the camera library loaded before.
class bundle_session {
 public:
  /// library_error when it can't be loaded, has not the three functions, or does not start.
  explicit bundle_session(const std::filesystem::path& path);
  ~bundle_session() { fini_(); }
  bundle_session(const bundle_session&) = delete;
  bundle_session& operator=(const bundle_session&) = delete;

  /// See MgBundleCreateDevice. From any thread.
  Zavik::Support::MediaGrabber::device_like* create(
      Zavik::Support::MediaGrabber::device_handler_like* handler, Zavik::Support::table_like* table) const {
    return create_(handler, table);
  }

 private:
  decltype(&MgBundleFini) fini_;
  decltype(&MgBundleCreateDevice) create_;
};

/// "169.254.77.2" for a number in host byte order.
std::string address_text(std::uint32_t address);

}  // namespace host

#endif
