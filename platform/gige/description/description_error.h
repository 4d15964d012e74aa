// Why a camera's description cannot be used.
#ifndef PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_ERROR_H
#define PLATFORM_GIGE_DESCRIPTION_DESCRIPTION_ERROR_H

#include <stdexcept>

namespace gige {

// The text names the fault with its node or address, and what would be right.
class description_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace gige

#endif
