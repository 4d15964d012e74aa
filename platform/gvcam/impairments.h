// Loss, reordering and repetition of packets on the way to the client. What happens to a packet depends on
// the seed and the packet's number alone, so that a run has the same faults each time, whatever the load of
// the machine.
#ifndef PLATFORM_GVCAM_IMPAIRMENTS_H
#define PLATFORM_GVCAM_IMPAIRMENTS_H

#include <cstdint>
#include <vector>

namespace gvcam {

// Ratios of all packets are from 0 to 1.
struct impairments {
  double loss = 0;
  unsigned burst = 1;           // packets that are lost in a row, 1 to 64
  double reorder = 0;           // sent up to 8 places late
  double duplicate = 0;         // sent twice
  double refuse = 0;            // of packets that are requested again: "not available"
  bool ignoresResends = false;  // no answer to resend requests
  bool isSilent = false;        // no packet is sent, but frames are counted
  std::uint64_t seed = 1;
};

// The ids of a frame's packets in the order in which they are sent, without the lost ones.
std::vector<std::uint32_t> sending_order(const impairments& faults, std::uint64_t blockId,
                                         std::uint32_t packets);

enum class resend_fate : std::uint8_t { sent, lost, refused };

// What happens when a packet is requested again. Each request has another `attempt`, so that a packet that
// was lost once can arrive later. A refusal does not depend on it: a packet that is not available stays so.
resend_fate fate_of_resend(const impairments& faults, std::uint64_t blockId, std::uint32_t packet,
                           std::uint64_t attempt);

}  // namespace gvcam

#endif
