#include "platform/gige/stream/resend_timeout.h"

namespace gige {

void resend_timeout::answered(duration after) {
  if (mean_ == duration::zero()) {
    mean_ = after;
    deviation_ = after / 2;
  } else {
    deviation_ += (std::chrono::abs(after - mean_) - deviation_) / 4;
    mean_ += (after - mean_) / 8;
  }
  value_ = std::clamp(mean_ + 4 * deviation_, std::min(shortest, longest_), longest_);
}

}  // namespace gige
