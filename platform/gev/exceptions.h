// Raising exceptions of the GenICam tree with the source line that they come from.
#ifndef PLATFORM_GEV_EXCEPTIONS_H
#define PLATFORM_GEV_EXCEPTIONS_H

#include <GenApi/GenApi.h>

#include <string>

namespace gev {

// Raises an exception of that kind. The description names the feature, the value and what would be right;
// file and line are the caller's.
template <class Kind>
[[noreturn]] void raise(const std::string& description, const char* file = __builtin_FILE(),
                        unsigned line = __builtin_LINE()) {
  throw Kind(description, file, line);
}

}  // namespace gev

#endif
