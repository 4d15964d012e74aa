// The configuration that `mediagrabber config` writes.
#ifndef HOST_CONFIG_TEMPLATE_H
#define HOST_CONFIG_TEMPLATE_H

#include <string>

namespace host {

/// A configuration with every key, its unit, range and default as comments. It is valid as it is.
std::string config_template();

}  // namespace host

#endif
