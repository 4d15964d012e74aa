// The functions that our camera libraries have beside `gevapi.h`. Other libraries have none of them.
#ifndef HOST_ACQUIRE_EXTENSION_H
#define HOST_ACQUIRE_EXTENSION_H

#include <camera_extension.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/acquire/library.h"

namespace host {

/// A camera that answered. Addresses in host byte order.
struct found_camera {
  std::string serial;
  std::string model;
  std::string version;
  std::string userName;
  std::uint64_t mac = 0;         ///< hardware address, 48 bits
  std::uint32_t address = 0;     ///< IPv4
  std::uint32_t controller = 0;  ///< address of who controls it; 0: nobody, or not known
  std::string unreachable;       ///< why it can't be opened as it is; empty: it can, or not known
};

/// A feature of an open camera, with the texts of the library.
struct feature_record {
  std::string name;
  std::optional<std::string> value;  ///< none: it can't be read
  std::optional<std::string> min;
  std::optional<std::string> max;
  std::optional<std::string> increment;
  std::string unit;
  std::string category;
  std::vector<std::string> entries;
  camera_extension_type type = camera_extension_string;
  bool isReadable = false;
  bool isWritable = false;
};

/// The functions of camera_extension.h in one camera library. Without them nothing is found, changed or
/// known. May be used on any thread; the library must be initialized (see bundle_session).
class camera_extension {
 public:
  explicit camera_extension(const camera_library& library);

  bool is_there() const { return prefer_ != nullptr; }
  /// These cameras come first among those that the bundle looks at, however many answer.
  void prefer(const std::vector<std::string>& serials) const;
  /// Every camera of the network; none without the extension, or when the search failed.
  std::optional<std::vector<found_camera>> list() const;
  /// The features of a camera that is open in this process, in the order of its description.
  std::optional<std::vector<feature_record>> features(const std::string& serial) const;
  std::optional<camera_extension_health_record> health(const std::string& serial) const;
  /// Ends every wait for this camera with an error. Whoever has it open must close it.
  void cancel(const std::string& serial) const;
  /// Gives a camera a temporary IPv4 configuration. 0 or a negative errno.
  int set_address(std::uint64_t mac, std::uint32_t address, std::uint32_t mask, std::uint32_t gateway) const;

 private:
  decltype(&camera_extension_prefer) prefer_ = nullptr;
  decltype(&camera_extension_list) list_ = nullptr;
  decltype(&camera_extension_features) features_ = nullptr;
  decltype(&camera_extension_health) health_ = nullptr;
  decltype(&camera_extension_cancel) cancel_ = nullptr;
  decltype(&camera_extension_set_address) setAddress_ = nullptr;
};

/// Null when there is none of that serial number.
const found_camera* find_camera(const std::vector<found_camera>& cameras, const std::string& serial);

/// The cameras that answer, by whatever the library offers. library_error.
std::vector<found_camera> find_cameras(const camera_library& library);

}  // namespace host

#endif
