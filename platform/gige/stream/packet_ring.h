// Receives a stream through a ring of memory that the system shares, which needs CAP_NET_RAW.
#ifndef PLATFORM_GIGE_STREAM_PACKET_RING_H
#define PLATFORM_GIGE_STREAM_PACKET_RING_H

#include <linux/if_packet.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/gige/control/descriptor.h"
#include "platform/gige/stream/packet_receiver.h"
#include "platform/gige/stream/stream_socket.h"

namespace gige {

// A UDP datagram within a packet that starts with its IP header.
struct udp_datagram {
  std::uint16_t sourcePort = 0;
  std::span<const std::uint8_t> content;
};

// Empty unless the packet holds a whole UDP datagram. Addresses and checksums are not checked.
std::optional<udp_datagram> read_datagram(std::span<const std::uint8_t> packet);

// The system copies the packets of this stream, and no others, into blocks of the ring (TPACKET_V3). It hands
// over a block when it is full, or after a millisecond, which is how long the last packets of a frame may
// wait. The packets are read in place. The stream's socket keeps the UDP port.
class packet_ring final : public packet_receiver {
 public:
  // Addresses are IPv4 in host byte order. The ring has about `bytes` bytes, and at least four blocks.
  // `socket` must outlive it. Raises std::system_error when the process lacks the privilege or the system the
  // memory.
  packet_ring(stream_socket& socket, std::uint32_t own, std::uint32_t camera, std::uint32_t bytes,
              const assembly_setup& setup);
  packet_ring(const packet_ring&) = delete;
  packet_ring& operator=(const packet_ring&) = delete;
  ~packet_ring() override;

  std::uint32_t bytes() const { return blockBytes_ * blockCount_; }

  void start() override;
  void stop() override;
  bool take(frame_assembler& into) override;
  void sleep(frame_assembler& into, moment latest, int wake) override;
  std::uint64_t kernel_drops() const override { return drops_; }

 private:
  static constexpr std::size_t batch = 64;

  void bind_to_interface();
  void make_ring();
  void pass_stream();
  void count_drops();

  std::uint8_t* block(std::uint32_t at) const { return memory_ + std::size_t{at} * blockBytes_; }
  std::uint32_t status() const;  // of the block that is next
  void give_block_back();
  void take_block(frame_assembler& into);
  bool is_of_transfer(const tpacket3_hdr& packet);
  bool is_of_camera(const udp_datagram& packet);

  stream_socket& socket_;
  const std::uint32_t own_;
  const std::uint32_t camera_;
  const std::size_t headerBytes_;
  descriptor ring_;
  std::uint8_t* memory_ = nullptr;
  std::uint32_t blockBytes_ = 0;
  std::uint32_t blockCount_ = 0;
  std::uint32_t next_ = 0;  // block
  std::uint64_t drops_ = 0;
  std::chrono::nanoseconds started_{};  // wall clock; 0: all packets are of this transfer
  std::array<datagram, batch> datagrams_{};
};

}  // namespace gige

#endif
