#include "platform/aravis/link.h"

#include "core/log.h"

namespace gige {

void link::lose(const std::string& why) {
  {
    const std::scoped_lock lock(mutex_);
    if (lost_.exchange(true)) {
      return;
    }
  }
  wake_.notify_all();
  LOG(1, "fail: camera %s is lost: %s", serial_.c_str(), why.c_str());
}

}  // namespace gige
