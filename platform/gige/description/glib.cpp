#include "platform/gige/description/glib.h"

#include "platform/gev/exceptions.h"

namespace gige {

void glib_error::raise_if_set(const std::string& feature) const {
  using gev::raise;
  if (error_ == nullptr) {
    return;
  }
  const std::string text = feature + ": " + error_->message;
  if (is(ARV_GC_ERROR, ARV_GC_ERROR_OUT_OF_RANGE)) {
    raise<GenICam::OutOfRangeException>(text);
  }
  if (is(ARV_GC_ERROR, ARV_GC_ERROR_READ_ONLY)) {
    raise<GenICam::AccessException>(text);
  }
  if (is(ARV_GC_ERROR, ARV_GC_ERROR_ENUM_ENTRY_NOT_FOUND)) {
    raise<GenICam::InvalidArgumentException>(text);
  }
  raise<GenICam::RuntimeException>(text);
}

}  // namespace gige
