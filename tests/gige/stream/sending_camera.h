// A camera that sends what a test says, packet by packet, in a network of the test's own.
#ifndef TESTS_GIGE_STREAM_SENDING_CAMERA_H
#define TESTS_GIGE_STREAM_SENDING_CAMERA_H

#include <gtest/gtest.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <optional>
#include <set>
#include <vector>

#include "platform/gige/control/addresses.h"
#include "platform/gige/control/descriptor.h"
#include "platform/gige_protocol/gvcp.h"

namespace test {

namespace protocol = gige_protocol;

// Once for the process. Its loopback interface has all addresses of 127.0.0.0/8.
inline bool enter_own_network() {
  if (unshare(CLONE_NEWNET) != 0) {
    return false;
  }
  const gige::descriptor any(socket(AF_INET, SOCK_DGRAM, 0));
  ifreq loopback{};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP;
  return ioctl(any.get(), SIOCSIFFLAGS, &loopback) == 0;
}

// A UDP socket of that address; port 0: any.
inline gige::descriptor bound_socket(std::uint32_t where, std::uint16_t port) {
  gige::descriptor made(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in here = gige::internet_address(where, port);
  EXPECT_EQ(bind(made.get(), reinterpret_cast<const sockaddr*>(&here), sizeof here), 0);
  return made;
}

class sending_camera {
 public:
  static constexpr std::uint32_t address = 0x7f000002;
  static constexpr std::uint32_t width = 256;
  static constexpr std::uint32_t height = 64;
  static constexpr std::uint32_t packetBytes = 1500;
  static constexpr std::size_t perPacket =
      protocol::payload_per_packet(packetBytes, protocol::id_mode::standard);
  static constexpr std::size_t frameBytes = std::size_t{width} * height;
  static constexpr auto trailer = static_cast<std::uint32_t>((frameBytes + perPacket - 1) / perPacket + 1);
  static constexpr std::uint64_t framePackets = trailer + 1;

  sending_camera()
      : stream_(bound_socket(address, 0)), control_(bound_socket(address, protocol::controlPort)) {}

  std::uint16_t stream_port() const { return ntohs(gige::bound_address(stream_.get()).sin_port); }
  void send_from_another_port() { stream_ = bound_socket(address, 0); }

  // The frame's pixels are made from its number.
  static std::vector<std::uint8_t> pixels(std::uint64_t id) {
    std::vector<std::uint8_t> made(frameBytes);
    for (std::size_t at = 0; at < made.size(); ++at) {
      made[at] = static_cast<std::uint8_t>(id * 7 + at * 13 + at / 256);
    }
    return made;
  }

  void send_frame(std::uint16_t port, std::uint64_t id, const std::set<std::uint32_t>& lost = {}) const {
    for (std::uint32_t packet = 0; packet <= trailer; ++packet) {
      if (!lost.contains(packet)) {
        send_packet(port, id, packet);
      }
    }
  }

  void send_packet(std::uint16_t port, std::uint64_t id, std::uint32_t packet,
                   protocol::status state = protocol::status::success) const {
    protocol::packet_head head{.state = state, .blockId = id, .packetId = packet};
    if (packet == 0) {
      send(port, protocol::make_leader(
                     head, {.timestamp = id * 1000,
                            .image = {.pixelFormat = 0x01080001, .width = width, .height = height}})
                     .view());
    } else if (packet == trailer) {
      send(port, protocol::make_trailer(head, {.height = height}).view());
    } else {
      std::array<std::uint8_t, protocol::extendedHeadSize> bytes{};
      const std::size_t size = protocol::store_packet_head(head, bytes);
      std::vector<std::uint8_t> whole(bytes.begin(), bytes.begin() + size);
      const auto image = pixels(id);
      const auto begin = image.begin() + static_cast<std::ptrdiff_t>((packet - 1) * perPacket);
      whole.insert(whole.end(), begin, begin + std::min<std::ptrdiff_t>(perPacket, image.end() - begin));
      send(port, whole);
    }
  }

  void send_test_packet(std::uint16_t port, std::uint32_t size) const {
    send(port, std::vector<std::uint8_t>(size - protocol::ipHeadSize - protocol::udpHeadSize));
  }

  void send(std::uint16_t port, protocol::byte_view bytes) const {
    const sockaddr_in to = gige::internet_address(INADDR_LOOPBACK, port);
    sendto(stream_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }

  // The next request for packets; nothing if none comes.
  std::optional<protocol::resend_request> next_request() const {
    const auto datagram = receive(control_);
    const auto command = protocol::parse_command(datagram);
    const auto request = command ? protocol::parse_packet_resend(*command) : protocol::refusal{"none"};
    return request ? std::optional(*request) : std::nullopt;
  }
  // Whether a packet comes to the port that the stream is sent from.
  bool hears_a_knock() const {
    pollfd knock{stream_.get(), POLLIN, 0};
    return poll(&knock, 1, patienceMs) == 1;
  }

 private:
  static constexpr int patienceMs = 5000;

  static std::vector<std::uint8_t> receive(const gige::descriptor& from) {
    std::vector<std::uint8_t> bytes(protocol::largestMessage);
    pollfd waiting{from.get(), POLLIN, 0};
    const bool came = poll(&waiting, 1, patienceMs) == 1;
    bytes.resize(came ? static_cast<std::size_t>(recv(from.get(), bytes.data(), bytes.size(), 0)) : 0);
    return bytes;
  }

  gige::descriptor stream_;
  gige::descriptor control_;
};

}  // namespace test

#endif
