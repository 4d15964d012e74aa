#include "platform/gev/exceptions.h"

namespace GenICam_3_0 {

GenericException::GenericException(const std::string& description, const char* sourceFile,
                                   unsigned sourceLine, const char* kind)
    : description_(description),
      what_(std::string(kind) + ": " + description),
      sourceFile_(sourceFile),
      sourceLine_(sourceLine) {}

const char* GenericException::what() const {
  return what_.c_str();
}
const char* GenericException::GetDescription() const {
  return description_.c_str();
}
const char* GenericException::GetSourceFileName() const {
  return sourceFile_;
}
unsigned GenericException::GetSourceLine() const {
  return sourceLine_;
}

// Out of line, so that the type information of each exists in this library only.
GenericException::~GenericException() = default;
AccessException::~AccessException() = default;
OutOfRangeException::~OutOfRangeException() = default;
InvalidArgumentException::~InvalidArgumentException() = default;
LogicalErrorException::~LogicalErrorException() = default;
TimeoutException::~TimeoutException() = default;
RuntimeException::~RuntimeException() = default;

}  // namespace GenICam_3_0
