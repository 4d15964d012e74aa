// A camera's figures for --stats.
#ifndef HOST_REPORT_STATS_LINE_H
#define HOST_REPORT_STATS_LINE_H

#include <string>

#include "host/report/camera_snapshot.h"

namespace host {

/// A JSON object without a newline: the host's counters and, as "bundle", the bundle's own statistics.
std::string stats_line(const camera_snapshot& now, const rate_meter::rates& rates,
                       const std::string& bundleStats);

}  // namespace host

#endif
