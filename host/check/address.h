// `mediagrabber address`: a temporary address for a camera.
#ifndef HOST_CHECK_ADDRESS_H
#define HOST_CHECK_ADDRESS_H

#include <cstdint>
#include <optional>
#include <string>

#include "host/acquire/library.h"

namespace host {

/// Gives a camera, named by its serial number or hardware address, a temporary address: "192.168.0.7/24" or
/// "192.168.0.7/255.255.255.0". 0; 1 when it is not there or does not take it. library_error.
int set_camera_address(const camera_library& library, const std::string& camera, const std::string& address);

struct ip_configuration {
  std::uint32_t address;
  std::uint32_t mask;  ///< both in host byte order
};
/// None when the text is no IP/MASK, or when the address is not of a single host.
std::optional<ip_configuration> parse_address(const std::string& text);

}  // namespace host

#endif
