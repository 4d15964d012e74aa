// Receives a stream on a UDP socket, which needs no privileges.
#ifndef PLATFORM_GIGE_STREAM_UDP_RECEIVER_H
#define PLATFORM_GIGE_STREAM_UDP_RECEIVER_H

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <vector>

#include "platform/gige/stream/nap_planner.h"
#include "platform/gige/stream/packet_receiver.h"
#include "platform/gige/stream/stream_socket.h"

namespace gige {

// The system copies each packet straight to its place in the frame, up to 64 with one call. Between the calls
// the receiver naps.
class udp_receiver final : public packet_receiver {
 public:
  // `socket` must outlive it. Sizes are those of the assembler that `take` is to be called with.
  udp_receiver(stream_socket& socket, const assembly_setup& setup);

  void start() override;
  bool take(frame_assembler& into) override;
  void sleep(frame_assembler& into, moment latest, int wake) override;
  std::uint64_t kernel_drops() const override { return drops_; }

 private:
  static constexpr std::size_t batch = 64;  // larger batches gain nothing

  std::size_t receive(frame_assembler& into, std::size_t most);
  void look_at_buffer();
  bool awaits_resends(frame_assembler& into);

  stream_socket& socket_;
  nap_planner planner_;
  nap_planner::observation seen_;
  std::uint64_t requestedBefore_ = 0;  // packets, when no frame was in progress
  std::uint64_t drops_ = 0;
  std::uint32_t dropsSeen_ = 0;  // as the system counts them

  // Of each datagram of a batch: its header, and room for a body that has no place in a frame.
  std::array<std::array<std::uint8_t, gige_protocol::extendedHeaderSize>, batch> headers_{};
  std::vector<std::uint8_t> spill_;
  std::array<std::uint8_t*, batch> places_{};
  std::array<std::array<iovec, 2>, batch> pieces_{};
  std::array<mmsghdr, batch> messages_{};
  std::array<datagram, batch> datagrams_{};
};

}  // namespace gige

#endif
