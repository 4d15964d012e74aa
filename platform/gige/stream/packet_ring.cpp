#include "platform/gige/stream/packet_ring.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <span>

#include "platform/gige/control/addresses.h"
#include "platform/gige/stream/sockets.h"
#include "platform/gige_protocol/bytes.h"

namespace gige {
namespace {

using gige_protocol::load;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::uint32_t smallestBlock = 64U << 10U;
constexpr std::uint32_t largestBlock = 1U << 20U;
constexpr std::uint32_t fewestBlocks = 4;
constexpr std::uint32_t blocksOfFrame = 4;  // most of a frame is taken while the rest arrives
constexpr std::uint32_t headroom = 128;     // in front of each packet in the ring, at most
constexpr std::uint32_t retireMs = 1;       // the least that the system offers

// Heads of IP and UDP.
constexpr std::size_t shortestIpHeader = 20;
constexpr std::size_t udpHeader = 8;
constexpr std::uint32_t fragmentMask = 0x3fff;  // offset, and "more fragments follow"

std::uint32_t block_size_for(const assembly_setup& setup) {
  const frame_layout layout = lay_out(setup);
  const std::uint64_t frame = std::uint64_t{layout.payloadPackets} * (setup.packetBytes + headroom);
  const auto share = std::bit_ceil(std::min<std::uint64_t>(frame / blocksOfFrame, largestBlock));
  return std::max(static_cast<std::uint32_t>(share), smallestBlock);
}

bool is_of_this_machine(std::uint32_t address) {
  const descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in tried = internet_address(address, 0);
  return bind(any.get(), reinterpret_cast<const sockaddr*>(&tried), sizeof tried) == 0;
}

// The interface on which packets of the camera arrive: the loopback interface when the camera's address
// belongs to this machine, whatever interface has that address. 0, any interface, when it is unknown.
int interface_between(std::uint32_t own, std::uint32_t camera) {
  if (is_of_this_machine(camera)) {
    return static_cast<int>(if_nametoindex("lo"));
  }
  for (const interface_address& each : interface_addresses()) {
    if (each.address == own) {
      return each.index;
    }
  }
  return 0;
}

}  // namespace

std::optional<udp_datagram> read_datagram(std::span<const std::uint8_t> packet) {
  constexpr std::uint8_t wordBytes = 4;
  if (packet.empty()) {
    return std::nullopt;
  }
  const std::size_t ipHeader = std::size_t{packet[0] & 0x0fU} * wordBytes;
  if (ipHeader < shortestIpHeader || packet.size() < ipHeader + udpHeader) {
    return std::nullopt;
  }
  const auto udp = packet.subspan(ipHeader);
  const std::size_t size = load<std::uint16_t>(udp, 4);
  if (size < udpHeader || size > udp.size()) {
    return std::nullopt;
  }
  return udp_datagram{load<std::uint16_t>(udp, 0), udp.subspan(udpHeader, size - udpHeader)};
}

// ---- Setting up

packet_ring::packet_ring(stream_socket& socket, std::uint32_t own, std::uint32_t camera, std::uint32_t bytes,
                         const assembly_setup& setup)
    : socket_(socket),
      own_(own),
      camera_(camera),
      headerBytes_(gige_protocol::header_size(setup.ids)),
      ring_(::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      blockBytes_(block_size_for(setup)),
      blockCount_(std::max((bytes + blockBytes_ - 1) / blockBytes_, fewestBlocks)) {
  if (!ring_) {
    raise_socket_error("making a packet socket");
  }
  drop_everything(ring_);
  make_ring();
  bind_to_interface();
}

packet_ring::~packet_ring() {
  if (memory_ != nullptr) {
    munmap(memory_, bytes());
  }
}

void packet_ring::make_ring() {
  const int version = TPACKET_V3;
  tpacket_req3 layout{};
  layout.tp_block_size = blockBytes_;
  layout.tp_block_nr = blockCount_;
  layout.tp_frame_size = smallestBlock;  // unused with this version, but checked
  layout.tp_frame_nr = blockBytes_ / smallestBlock * blockCount_;
  layout.tp_retire_blk_tov = retireMs;
  if (setsockopt(ring_.get(), SOL_PACKET, PACKET_VERSION, &version, sizeof version) != 0 ||
      setsockopt(ring_.get(), SOL_PACKET, PACKET_RX_RING, &layout, sizeof layout) != 0) {
    raise_socket_error("making a packet ring");
  }
  void* const memory =
      mmap(nullptr, bytes(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, ring_.get(), 0);
  if (memory == MAP_FAILED) {
    raise_socket_error("mapping a packet ring");
  }
  memory_ = static_cast<std::uint8_t*>(memory);
}

// The socket receives from now on. Bound to a protocol, it does not see packets that this machine sends.
void packet_ring::bind_to_interface() {
  sockaddr_ll where{};
  where.sll_family = AF_PACKET;
  where.sll_protocol = htons(ETH_P_IP);
  where.sll_ifindex = interface_between(own_, camera_);
  if (bind(ring_.get(), reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0) {
    raise_socket_error("binding a packet socket");
  }
}

// The system runs this filter on each packet of the interface, from the IP header on.
void packet_ring::pass_stream() {
  constexpr std::uint32_t protocolAt = 9;
  constexpr std::uint32_t fragmentAt = 6;
  constexpr std::uint32_t fromAt = 12;
  constexpr std::uint32_t toAt = 16;
  constexpr std::uint32_t wholePacket = 0x4'0000;
  const std::uint16_t matching = socket_.source() == 0 ? BPF_JGE : BPF_JEQ;  // 0: any
  std::array program{
      sock_filter BPF_STMT(BPF_LD | BPF_B | BPF_ABS, protocolAt),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 12),
      sock_filter BPF_STMT(BPF_LD | BPF_H | BPF_ABS, fragmentAt),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, fragmentMask, 10, 0),
      sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, fromAt),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, camera_, 0, 8),
      sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, toAt),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, own_, 0, 6),
      sock_filter BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),  // length of the IP header
      sock_filter BPF_STMT(BPF_LD | BPF_H | BPF_IND, 2),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, socket_.port(), 0, 3),
      sock_filter BPF_STMT(BPF_LD | BPF_H | BPF_IND, 0),
      sock_filter BPF_JUMP(BPF_JMP | matching | BPF_K, socket_.source(), 0, 1),
      sock_filter BPF_STMT(BPF_RET | BPF_K, wholePacket),
      sock_filter BPF_STMT(BPF_RET | BPF_K, 0),
  };
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  setsockopt(ring_.get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

// ---- Receiving

void packet_ring::start() {
  socket_.mute(true);
  while ((status() & TP_STATUS_USER) != 0) {
    give_block_back();
  }
  started_ = std::chrono::system_clock::now().time_since_epoch();
  pass_stream();
}

void packet_ring::stop() {
  drop_everything(ring_);
  count_drops();
  socket_.mute(false);
}

bool packet_ring::take(frame_assembler& into) {
  for (std::uint32_t taken = 0; taken < blockCount_; ++taken) {
    const std::uint32_t state = status();
    if ((state & TP_STATUS_USER) == 0) {
      return true;
    }
    if ((state & TP_STATUS_LOSING) != 0) {
      count_drops();
    }
    take_block(into);
    give_block_back();
  }
  return false;
}

void packet_ring::take_block(frame_assembler& into) {
  const std::uint8_t* const begin = block(next_);
  tpacket_block_desc description;
  std::memcpy(&description, begin, sizeof description);
  std::size_t offset = description.hdr.bh1.offset_to_first_pkt;
  std::size_t count = 0;
  for (std::uint32_t left = description.hdr.bh1.num_pkts; left > 0; --left) {
    tpacket3_hdr packet;
    std::memcpy(&packet, begin + offset, sizeof packet);
    const auto read = read_datagram({begin + offset + packet.tp_net, packet.tp_snaplen});
    if (read && is_of_transfer(packet) && is_of_camera(*read)) {
      const std::uint8_t* const header = read->content.data();
      datagrams_[count++] = {header, header + std::min(headerBytes_, read->content.size()),
                             read->content.size()};
    }
    offset += packet.tp_next_offset;
    if (count == batch || left == 1) {
      into.accept(std::span(datagrams_).first(count), steady_clock::now());
      count = 0;
    }
  }
}

// The first block may have begun before the transfer. Once one packet is younger than the transfer, all later
// ones are, even if the wall clock is set back.
bool packet_ring::is_of_transfer(const tpacket3_hdr& packet) {
  if (started_ != nanoseconds(0) && seconds(packet.tp_sec) + nanoseconds(packet.tp_nsec) < started_) {
    return false;
  }
  started_ = nanoseconds(0);
  return true;
}

// While the camera's port is unknown, it is taken from the first packet that has a stream header.
bool packet_ring::is_of_camera(const udp_datagram& packet) {
  if (socket_.source() == 0 && gige_protocol::parse_packet_header(packet.content)) {
    socket_.set_source(packet.sourcePort);
    pass_stream();
  }
  return packet.sourcePort == socket_.source();
}

void packet_ring::sleep(frame_assembler& /*into*/, moment latest, int wake) {
  std::array<pollfd, 2> events{{{wake, POLLIN, 0}, {ring_.get(), POLLIN, 0}}};
  const timespec time = time_until(latest);
  ppoll(events.data(), events.size(), &time, nullptr);
}

std::uint32_t packet_ring::status() const {
  auto* const description = reinterpret_cast<tpacket_block_desc*>(block(next_));
  return std::atomic_ref(description->hdr.bh1.block_status).load(std::memory_order_acquire);
}

void packet_ring::give_block_back() {
  auto* const description = reinterpret_cast<tpacket_block_desc*>(block(next_));
  std::atomic_ref(description->hdr.bh1.block_status).store(TP_STATUS_KERNEL, std::memory_order_release);
  next_ = (next_ + 1) % blockCount_;
}

void packet_ring::count_drops() {
  tpacket_stats_v3 figures{};
  socklen_t size = sizeof figures;
  getsockopt(ring_.get(), SOL_PACKET, PACKET_STATISTICS, &figures, &size);  // starts again from 0
  drops_ += figures.tp_drops;
}

}  // namespace gige
