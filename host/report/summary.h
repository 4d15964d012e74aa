// What a camera did, told at its end.
#ifndef HOST_REPORT_SUMMARY_H
#define HOST_REPORT_SUMMARY_H

#include <string>
#include <vector>

#include "host/acquire/settings_queue.h"
#include "host/report/camera_snapshot.h"

namespace host {

/// A few lines without a newline at the end: frames, intervals, the stream, outputs, and what became of each
/// setting.
std::string summary(const camera_snapshot& now, const std::vector<setting_outcome>& settings);

}  // namespace host

#endif
