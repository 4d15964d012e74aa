// How large the packets of a stream may be.
#ifndef PLATFORM_GIGE_STREAM_PACKET_SIZE_H
#define PLATFORM_GIGE_STREAM_PACKET_SIZE_H

#include <cstdint>
#include <functional>
#include <string>

#include "platform/gige/stream/frame_stream.h"

namespace gige {

// Whether a test packet of that size came, within a time that is up to the caller.
using await_test_packet = std::function<bool(std::uint32_t size)>;

// Test packets go down from `requested` (0: the largest that there is) through the sizes that networks have,
// until one arrives. Each is sent twice, since any packet may get lost. When the first size does not arrive,
// the smallest is tried next: if that does not arrive either, nothing will, and `requested` stays; for 0, a
// size that passes every network. Says in the log which it was. Sizes count IP and UDP headers. `camera` is
// for the log.
std::uint32_t find_packet_size(std::uint32_t requested, const fire_test_packet& fire,
                               const await_test_packet& arrives, const std::string& camera);

}  // namespace gige

#endif
