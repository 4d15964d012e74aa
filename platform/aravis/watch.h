// Notices that a camera is gone, or is not ours any more, long before a command to it fails.
#ifndef PLATFORM_ARAVIS_WATCH_H
#define PLATFORM_ARAVIS_WATCH_H

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/aravis/gvcp_client.h"
#include "platform/aravis/link.h"

namespace gige {

// A thread that looks whenever frames are due and none has come for a while. Frames that come are proof
// enough, so that a camera at work is not asked. When the camera does not answer, is controlled by nobody, or
// sends its frames to somebody else, the link is lost.
class watch {
 public:
  // `arrivals` counts frames and is called from the thread; `port` is where frames are to arrive.
  watch(std::shared_ptr<link> owner, gvcp_client client, std::uint16_t port,
        std::function<std::uint64_t()> arrivals);
  watch(const watch&) = delete;
  watch& operator=(const watch&) = delete;
  ~watch();

 private:
  void run();
  void look();

  const std::shared_ptr<link> link_;
  gvcp_client client_;
  const std::uint16_t port_;
  const std::function<std::uint64_t()> arrivals_;
  bool ended_ = false;  // under the lock
  std::mutex mutex_;
  std::condition_variable end_;
  std::thread thread_;
};

}  // namespace gige

#endif
