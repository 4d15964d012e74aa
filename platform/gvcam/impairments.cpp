#include "platform/gvcam/impairments.h"

#include <algorithm>

namespace gvcam {
namespace {

constexpr std::uint32_t furthestBehind = 8;  // packets

// Random draws for the same packet, independent of each other.
enum class draw : std::uint64_t { loss = 1, reorder, place, duplicate, refuse, resend };

std::uint64_t scattered(std::uint64_t number) {
  number += 0x9E3779B97F4A7C15U;
  number = (number ^ (number >> 30U)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27U)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31U);
}

// Evenly spread from 0 to below 1.
double chance(const impairments& faults, draw what, std::uint64_t blockId, std::uint64_t packet,
              std::uint64_t attempt = 0) {
  std::uint64_t number = scattered(faults.seed ^ static_cast<std::uint64_t>(what) << 56U);
  for (const std::uint64_t part : {blockId, packet, attempt}) {
    number = scattered(number ^ part);
  }
  return static_cast<double>(number >> 11U) * 0x1p-53;
}

// A packet begins a burst with the probability loss / burst, so that the ratio of lost packets is `loss`.
bool is_lost(const impairments& faults, std::uint64_t blockId, std::uint32_t packet) {
  const double begins = faults.loss / faults.burst;
  const std::uint32_t first = packet < faults.burst ? 0 : packet - faults.burst + 1;
  for (std::uint32_t at = first; faults.loss > 0 && at <= packet; ++at) {
    if (chance(faults, draw::loss, blockId, at) < begins) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::vector<std::uint32_t> sending_order(const impairments& faults, std::uint64_t blockId,
                                         std::uint32_t packets) {
  struct sending {
    double place;  // the packet's id, or id + n + 0.5 for one that is sent after n more packets
    std::uint32_t packet;
  };
  std::vector<sending> sendings;
  sendings.reserve(packets);
  for (std::uint32_t packet = 0; !faults.isSilent && packet < packets; ++packet) {
    if (is_lost(faults, blockId, packet)) {
      continue;
    }
    const auto late = [&](draw what, double ratio) {
      return ratio > 0 && chance(faults, what, blockId, packet) < ratio;
    };
    const double behind =
        0.5 + std::uint32_t(chance(faults, draw::place, blockId, packet) * furthestBehind) + 1;
    sendings.push_back({packet + (late(draw::reorder, faults.reorder) ? behind : 0), packet});
    if (late(draw::duplicate, faults.duplicate)) {
      sendings.push_back({packet + behind, packet});
    }
  }
  std::ranges::stable_sort(sendings, {}, &sending::place);
  std::vector<std::uint32_t> order(sendings.size());
  std::ranges::transform(sendings, order.begin(), &sending::packet);
  return order;
}

resend_fate fate_of_resend(const impairments& faults, std::uint64_t blockId, std::uint32_t packet,
                           std::uint64_t attempt) {
  if (faults.refuse > 0 && chance(faults, draw::refuse, blockId, packet) < faults.refuse) {
    return resend_fate::refused;
  }
  if (faults.isSilent ||
      (faults.loss > 0 && chance(faults, draw::resend, blockId, packet, attempt) < faults.loss)) {
    return resend_fate::lost;
  }
  return resend_fate::sent;
}

}  // namespace gvcam
