#include "platform/gige/stream/packet_size.h"

#include <algorithm>
#include <array>

#include "core/log.h"

namespace gige {
namespace {

// Largest packets of networks, from the largest that GigE Vision knows down to the smallest that it allows:
// jumbo frames as various equipment has them, Ethernet, with PPPoE, in tunnels.
constexpr std::array<std::uint32_t, 10> networkSizes{16'260, 9216, 9000, 8192, 4088,
                                                     1500,   1492, 1400, 1280, 576};
constexpr std::uint32_t anyNetwork = 1500;

}  // namespace

std::uint32_t find_packet_size(std::uint32_t requested, const fire_test_packet& fire,
                               const await_test_packet& arrives, const std::string& camera) {
  // The size that arrived, which the camera may have rounded; 0: none.
  const auto try_size = [&](std::uint32_t size) -> std::uint32_t {
    for (int attempt = 0; attempt < 2; ++attempt) {
      const std::uint32_t sent = fire(size);
      if (sent == 0) {
        return 0;
      }
      if (arrives(sent)) {
        return sent;
      }
    }
    return 0;
  };

  const std::uint32_t first = requested == 0 ? networkSizes.front() : requested;
  std::uint32_t carried = try_size(first);
  if (carried == 0 && try_size(networkSizes.back()) == 0) {
    const std::uint32_t stays = requested == 0 ? anyNetwork : requested;
    LOG(2, "fail: packet size of %s: no test packet arrived, it stays as asked for (packet-size:%u)",
        camera.c_str(), stays);
    return stays;
  }
  for (auto next = networkSizes.begin(); carried == 0 && next != networkSizes.end(); ++next) {
    carried = *next < first ? try_size(*next) : 0;
  }
  carried = carried == 0 ? networkSizes.back() : carried;
  LOG(carried < requested ? 2 : 4, "%s: packet size of %s (asked-for:%u, carried:%u)",
      carried < requested ? "fail" : "done", camera.c_str(), requested, carried);
  return carried;
}

}  // namespace gige
