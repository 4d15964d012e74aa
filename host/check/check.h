// `mediagrabber check`: whether a camera does what its configuration says, as a table of named checks.
#ifndef HOST_CHECK_CHECK_H
#define HOST_CHECK_CHECK_H

#include "host/acquire/library.h"
#include "host/config/config.h"

namespace host {

/// Tests every camera, one after the other, and writes the table to standard output. 0 when no check failed,
/// else 1. library_error only for libraries that are not there at all.
int check_cameras(const library_choice& chosen, const config& configuration);

}  // namespace host

#endif
