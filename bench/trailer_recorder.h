// When the last packet of each frame arrived, by looking at the network. For a process that may look
// (CAP_NET_RAW).
#ifndef BENCH_TRAILER_RECORDER_H
#define BENCH_TRAILER_RECORDER_H

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>

// Keeps the arrivals of the packets that end a frame, of one camera, with standard ids. Costs nothing until
// asked.
class trailer_recorder {
 public:
  trailer_recorder() : socket_(socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_IP))) {
    // UDP (byte 9) whose content (from byte 28 on) has the format of a trailer in its byte 4.
    std::array<sock_filter, 7> code = {
        {BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 17, 0, 4),
         BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 32), BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0x8f),
         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 2, 0, 1), BPF_STMT(BPF_RET | BPF_K, 64),
         BPF_STMT(BPF_RET | BPF_K, 0)}};
    const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
    const int yes = 1;
    const int room = 4 << 20;
    if (socket_ < 0 || setsockopt(socket_, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0 ||
        setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0 ||
        setsockopt(socket_, SOL_SOCKET, SO_TIMESTAMPNS, &yes, sizeof yes) != 0) {
      std::perror("no look at the network");
      std::exit(1);
    }
  }
  ~trailer_recorder() { close(socket_); }
  trailer_recorder(const trailer_recorder&) = delete;
  trailer_recorder& operator=(const trailer_recorder&) = delete;

  // Seconds of the wall clock, by frame id; of those that were not taken yet.
  std::map<std::uint64_t, double> take() const {
    std::map<std::uint64_t, double> arrivals;
    std::array<std::uint8_t, 64> packet{};
    alignas(cmsghdr) std::array<char, 64> control{};
    for (;;) {
      iovec content{packet.data(), packet.size()};
      msghdr message{};
      message.msg_iov = &content;
      message.msg_iovlen = 1;
      message.msg_control = control.data();
      message.msg_controllen = control.size();
      if (recvmsg(socket_, &message, MSG_DONTWAIT) <= 0) {
        return arrivals;
      }
      const auto* const time = reinterpret_cast<const timespec*>(CMSG_DATA(CMSG_FIRSTHDR(&message)));
      const auto id = static_cast<std::uint64_t>(packet[30]) << 8U | packet[31];
      arrivals[id] = static_cast<double>(time->tv_sec) + 1e-9 * static_cast<double>(time->tv_nsec);
    }
  }

 private:
  int socket_;
};

#endif
