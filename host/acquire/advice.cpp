#include "host/acquire/advice.h"

#include "host/acquire/loss.h"

namespace host {

std::string no_frames_advice(const std::optional<camera_extension_health_record>& record) {
  const std::string causes = record ? loss_text(*record) : "";
  return causes.empty()
             ? "look for a firewall that holds the stream back, a packet size above the network's, or a "
               "camera that waits for a trigger"
             : causes;
}

}  // namespace host
