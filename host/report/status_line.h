// The line that shows how a camera is doing while it runs.
#ifndef HOST_REPORT_STATUS_LINE_H
#define HOST_REPORT_STATUS_LINE_H

#include <string>

#include "host/report/camera_snapshot.h"

namespace host {

/// "SIM00001 #120 30.0/s missed 0 gap 12ms 5000us 6.0dB 41.2C rec 120/0 12.3MB/s", for the width of a
/// terminal: serial number, "DOWN" unless the device runs, frames, rate, missed frames; of a network camera
/// the packets that were lost and those that came when they were asked for again ("packets lost 3 again
/// 120"); time since the last frame, exposure, gain and sensor temperature; of recording and video the frames
/// written and dropped, and the rate of writing.
std::string status_line(const camera_snapshot& now, const rate_meter::rates& rates);

}  // namespace host

#endif
