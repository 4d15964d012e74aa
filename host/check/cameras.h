// `mediagrabber cameras`: which cameras there are, and why one is not among them.
#ifndef HOST_CHECK_CAMERAS_H
#define HOST_CHECK_CAMERAS_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/acquire/extension.h"
#include "host/acquire/library.h"

namespace host {

/// An IPv4 address of this machine; addresses in host byte order.
struct network_interface {
  std::string name;
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  bool isUp = false;
  bool isLoopback = false;

  bool reaches(std::uint32_t other) const { return isUp && (address & mask) == (other & mask); }
};

std::vector<network_interface> network_interfaces();
/// The interfaces that cameras are reached over: none for simulated ones.
std::vector<network_interface> surroundings(bool isSimulated);

/// The cameras as a table with a head line.
std::string camera_table(const std::vector<found_camera>& cameras);

/// The address of who controls a camera (see found_camera); "another machine" for one that the camera does
/// not name, "-" for nobody.
std::string controller_text(std::uint32_t controller);

/// What a search for cameras brought, and what is needed to judge it.
struct camera_search {
  std::vector<found_camera> found;
  std::vector<network_interface> interfaces;  ///< none: subnets are not looked at
  std::size_t reach = 0;                      ///< so many of those found the bundle looks at
};

/// library_error.
camera_search search_cameras(const camera_library& library, bool isSimulated);

/// Why the camera `serial` (empty: any camera) can't be used: what was looked at and the likely reasons, a
/// line each. No lines when it can.
std::vector<std::string> why_missing(const std::string& serial, const camera_search& search);

/// Lists the cameras of the library on standard output, and the reasons for each of `wanted` that is not
/// there. 0 when there are cameras and all wanted ones are among them, else 1. library_error.
int list_cameras(const camera_library& library, const std::vector<std::string>& wanted, bool isSimulated);

}  // namespace host

#endif
