// What the API says of cameras, as JSON texts.
#ifndef HOST_WEB_LIVE_LIVE_JSON_H
#define HOST_WEB_LIVE_LIVE_JSON_H

#include <string>
#include <vector>

#include "host/report/log_tail.h"
#include "host/web/live/live_run.h"

namespace host {

/// "running", "silent for 3 s", "down: the camera did not answer; created again in 4 s".
std::string phase_words(const live_camera& camera);

/// An object; `cameras_json` an array of them.
std::string camera_json(const live_camera& camera);
std::string cameras_json(const std::vector<live_camera>& cameras);

/// An array of {"number","time_us","level","camera","text"}.
std::string log_json(const std::vector<tail_line>& lines);

}  // namespace host

#endif
