// What clients ask of cameras, by looking at the network. For a process that may look (CAP_NET_RAW,
// CAP_NET_ADMIN).
#ifndef TESTS_WIRE_COMMAND_RECORDER_H
#define TESTS_WIRE_COMMAND_RECORDER_H

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace wire_test {

// A command of the GigE Vision control protocol for one register, or for a block that begins there.
struct command {
  bool isWrite = false;
  std::uint32_t address = 0;
  bool operator==(const command&) const = default;
};

// Records from its beginning on, a few thousand commands at most; counts any number.
class command_recorder {
 public:
  command_recorder() : socket_(socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_IP))) {
    // UDP (byte 9) to port 3956 (bytes 22 and 23, as the address header has no options).
    std::array<sock_filter, 6> code = {
        {BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 17, 0, 3),
         BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 22), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 3956, 0, 1),
         BPF_STMT(BPF_RET | BPF_K, 64), BPF_STMT(BPF_RET | BPF_K, 0)}};
    const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
    const int yes = 1;
    const int room = 4 << 20;
    if (socket_ < 0 || setsockopt(socket_, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0 ||
        setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0 ||
        setsockopt(socket_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &yes, sizeof yes) != 0) {
      throw std::runtime_error(std::string("no look at the network: ") + std::strerror(errno));
    }
  }
  ~command_recorder() { close(socket_); }
  command_recorder(const command_recorder&) = delete;
  command_recorder& operator=(const command_recorder&) = delete;

  // How many there were since this was asked last.
  std::uint32_t count() const {
    tpacket_stats statistics{};
    socklen_t size = sizeof statistics;
    getsockopt(socket_, SOL_PACKET, PACKET_STATISTICS, &statistics, &size);
    return statistics.tp_packets;
  }

  // Those that were not taken yet.
  std::vector<command> take() const {
    constexpr std::size_t head = 28;  // of IP and UDP
    std::vector<command> taken;
    std::array<std::uint8_t, 64> packet{};
    for (ssize_t size = 0; (size = recv(socket_, packet.data(), packet.size(), MSG_DONTWAIT)) > 0;) {
      if (size < static_cast<ssize_t>(head + 12)) {
        continue;  // it has no register
      }
      std::uint32_t address = 0;
      std::memcpy(&address, &packet[head + 8], sizeof address);
      const std::uint8_t code = packet[head + 3];
      taken.push_back({code == 0x82 || code == 0x86, ntohl(address)});
    }
    return taken;
  }

 private:
  int socket_;
};

}  // namespace wire_test

#endif
