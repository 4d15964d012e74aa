// Raising exceptions of the GenICam tree with the place they come from.
#ifndef PLATFORM_GENAPI_EXCEPTIONS_H
#define PLATFORM_GENAPI_EXCEPTIONS_H

#include <GenApi/GenApi.h>

#include <string>

namespace genapi {

// Raises an exception of the given kind. The description names the feature, the value and what would be
// right; file and line are the caller's.
template <class Kind>
[[noreturn]] void raise(const std::string& description, const char* file = __builtin_FILE(),
                        unsigned line = __builtin_LINE()) {
  throw Kind(description, file, line);
}

}  // namespace genapi

#endif
