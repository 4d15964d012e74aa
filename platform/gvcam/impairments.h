// What goes wrong between a camera and its client, on demand. What happens to a packet follows from the seed
// and the packet's number alone: the same run has the same faults, whatever the machine's load.
#ifndef PLATFORM_GVCAM_IMPAIRMENTS_H
#define PLATFORM_GVCAM_IMPAIRMENTS_H

#include <cstdint>
#include <vector>

namespace gvcam {

// Ratios are parts of all packets, 0 to 1.
struct impairments {
  double loss = 0;
  unsigned burst = 1;           // packets that are lost in a row, at most 64
  double reorder = 0;           // come up to 8 places late
  double duplicate = 0;         // come twice
  double refuse = 0;            // of those asked for again: "not available"
  bool ignoresResends = false;  // nothing is sent again
  bool isSilent = false;        // frames go on, without a packet of them
  std::uint64_t seed = 1;
};

// The ids of a frame's packets, each as often and at the place as it is sent.
std::vector<std::uint32_t> sending_order(const impairments& faults, std::uint64_t blockId,
                                         std::uint32_t packets);

enum class resend_fate : std::uint8_t { sent, lost, refused };

// What becomes of a packet that is asked for again. `attempt` tells the requests for it apart. Whether it is
// refused does not depend on that: who does not have a packet will not have it later.
resend_fate fate_of_resend(const impairments& faults, std::uint64_t blockId, std::uint32_t packet,
                           std::uint64_t attempt);

}  // namespace gvcam

#endif
