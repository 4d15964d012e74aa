// How a run ends while no frames arrive.
#ifndef HOST_SILENT_END_H
#define HOST_SILENT_END_H

#include <exception>

namespace host {

/// Raised out of onNoFrame, as the bundle asks for a signal only after frames. The bundle logs it and ends
/// the run as a failure.
class silent_end : public std::exception {
 public:
  const char* what() const noexcept override {
    return "no failure: the host ends the run while no frames arrive";
  }
};

}  // namespace host

#endif
