#include "platform/aravis/glib.h"

#include "platform/gev/exceptions.h"

namespace gige {
namespace {

using gev::raise;

[[noreturn]] void raise_device_error(int code, const std::string& text) {
  switch (code) {
    case ARV_DEVICE_ERROR_TIMEOUT:
    case ARV_DEVICE_ERROR_NOT_CONNECTED:
      raise<GenICam::TimeoutException>(text);
    case ARV_DEVICE_ERROR_NOT_CONTROLLER:
    case ARV_DEVICE_ERROR_PROTOCOL_ERROR_WRITE_PROTECT:
    case ARV_DEVICE_ERROR_PROTOCOL_ERROR_ACCESS_DENIED:
      raise<GenICam::AccessException>(text);
    default:
      raise<GenICam::RuntimeException>(text);
  }
}

[[noreturn]] void raise_description_error(int code, const std::string& text) {
  switch (code) {
    case ARV_GC_ERROR_OUT_OF_RANGE:
      raise<GenICam::OutOfRangeException>(text);
    case ARV_GC_ERROR_READ_ONLY:
      raise<GenICam::AccessException>(text);
    case ARV_GC_ERROR_ENUM_ENTRY_NOT_FOUND:
      raise<GenICam::InvalidArgumentException>(text);
    default:
      raise<GenICam::RuntimeException>(text);
  }
}

}  // namespace

void glib_error::raise_if_set(const std::string& feature) const {
  if (error_ == nullptr) {
    return;
  }
  const std::string text = feature + ": " + error_->message;
  if (error_->domain == ARV_DEVICE_ERROR) {
    raise_device_error(error_->code, text);
  }
  if (error_->domain == ARV_GC_ERROR) {
    raise_description_error(error_->code, text);
  }
  raise<GenICam::RuntimeException>(text);
}

}  // namespace gige
