// Why a camera's description cannot be used.
#ifndef PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_ERROR_H
#define PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_ERROR_H

#include <stdexcept>

namespace gige {

// The text says what is wrong, with the node or the address it is wrong with, and what would be right.
class description_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace gige

#endif
