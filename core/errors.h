// The exceptions that the bundle raises. They carry nothing but their type: `what()` is the standard
// library's default text, and the cause is in the log line that the thrower wrote just before.
#ifndef CORE_ERRORS_H
#define CORE_ERRORS_H

#include <exception>

namespace Zavik {

/// The root that boundaries catch; never raised by itself.
class generic_error : public std::exception {};

/// Something the bundle relies on is not usable: no node map, a missing feature, a camera that can't be
/// opened, an IR output that can't be set up. Also what a boundary makes of a foreign exception.
class internal_error : public generic_error {};

/// A required argument is null, or a mode is not available.
class unsupported_error : public internal_error {};

/// A value exchanged with the camera is unusable.
class external_error : public generic_error {};

/// A configuration value is missing, or contradicts the camera's limits.
class params_error : public external_error {};

/// No camera has the configured serial number.
class not_found_error : public external_error {};

}  // namespace Zavik

#endif
