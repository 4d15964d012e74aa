// What a person can do about a camera that fails: one text for `mediagrabber check`, the log and the live
// page.
#ifndef HOST_ACQUIRE_ADVICE_H
#define HOST_ACQUIRE_ADVICE_H

#include <camera_extension.h>

#include <optional>
#include <string>

namespace host {

/// For a failure of which only the bundle's own log lines say something.
inline constexpr const char* kUnexplainedAdvice = "'mediagrabber run -v' logs what led to it";

/// For a camera that runs and sends no frames: the causes in the camera library's record of its stream, else
/// what commonly holds a stream back.
std::string no_frames_advice(const std::optional<camera_extension_health_record>& record);

}  // namespace host

#endif
