#include "host/report/log_tail.h"

#include <algorithm>
#include <utility>

#include "core/time_helpers.h"

namespace host {

void log_tail::add(int level, const std::string& camera, std::string text) {
  if (level > kLevelMax) {
    return;
  }
  text.resize(std::min(text.size(), kTextMax));
  const std::lock_guard lock(mutex_);
  if (lines_.size() == kLines) {
    lines_.pop_front();
  }
  lines_.push_back({++last_, Time__GetTimeUsec(), level, camera, std::move(text)});
}

std::vector<tail_line> log_tail::since(std::uint64_t after, int level, const std::string& camera) const {
  const std::lock_guard lock(mutex_);
  std::vector<tail_line> chosen;
  std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(chosen), [&](const tail_line& line) {
    return line.number > after && line.level <= level && (camera.empty() || line.camera == camera);
  });
  return chosen;
}

}  // namespace host
