// What Prometheus reads.
#ifndef HOST_REPORT_METRICS_H
#define HOST_REPORT_METRICS_H

#include <string>
#include <vector>

#include "host/report/camera_snapshot.h"

namespace host {

/// All cameras in the text format that Prometheus reads.
std::string metrics_text(const std::vector<camera_snapshot>& cameras);

}  // namespace host

#endif
