#include "platform/aravis/link.h"

#include "core/log.h"

namespace gige {

void link::lose(const std::string& why) {
  if (told_.exchange(true)) {
    return;
  }
  LOG(1, "fail: camera %s is lost: %s", serial_.c_str(), why.c_str());
  {
    const std::scoped_lock lock(mutex_);
    lost_.store(true, std::memory_order_release);
  }
  wake_.notify_all();
}

}  // namespace gige
