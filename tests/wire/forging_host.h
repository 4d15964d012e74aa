// Other hosts of a network that only the test has.
#ifndef TESTS_WIRE_FORGING_HOST_H
#define TESTS_WIRE_FORGING_HOST_H

#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <future>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/gige/control/addresses.h"
#include "platform/gige/control/descriptor.h"
#include "platform/gige_protocol/gvsp.h"

namespace test {

inline bool succeeds(const std::string& command) {
  return std::system(command.c_str()) == 0;
}

// Once for the process, whose end of it has the address 10.1.0.1.
inline bool make_bridge() {
  static const bool made = succeeds(
      "ip link add bridge0 type bridge && ip addr add 10.1.0.1/24 dev bridge0 && ip link set bridge0 up");
  return made;
}

// A thread in a network namespace of its own, with the address 10.1.0.`number`, at the bridge. The namespace
// ends with the thread and what that has started. Made by the main thread.
class far_host {
 public:
  far_host(unsigned number, std::function<void()> work)
      : thread_([this, number, work = std::move(work)] {
          hasCable_.set_value(unshare(CLONE_NEWNET) == 0 &&
                              succeeds("ip link add eth0 type veth peer name " + cable_ + " netns " +
                                       std::to_string(getpid()) + " && ip addr add 10.1.0." +
                                       std::to_string(number) +
                                       "/24 dev eth0 && ip link set lo up && ip link set eth0 up"));
          isPlugged_.get_future().wait();
          work();
        }) {
    EXPECT_TRUE(hasCable_.get_future().get());
    EXPECT_TRUE(succeeds("ip link set " + cable_ + " master bridge0 up"));
    isPlugged_.set_value();
  }
  ~far_host() { thread_.join(); }
  far_host(const far_host&) = delete;
  far_host& operator=(const far_host&) = delete;

 private:
  // A namespace, and the cable with it, ends some time after its thread.
  static inline unsigned cables = 0;

  const std::string cable_ = "far" + std::to_string(++cables);
  std::promise<bool> hasCable_;
  std::promise<void> isPlugged_;
  std::thread thread_;
};

// Sends 10 000 stream packets a second to a receiver, whole frames of leaders, payload and trailers again and
// again. In turn they are from its own address and the port of the camera; from the address of the camera and
// another port; from address and port of the camera. Those look like frames of another time: one that has the
// number of a frame that is under way could not be told from the camera's by anybody.
class forging_host {
 public:
  struct endpoint {
    std::uint32_t address;  // host byte order
    std::uint16_t port;
  };

  forging_host(unsigned number, const endpoint& camera, const endpoint& receiver, std::uint32_t trailer)
      : own_(0x0a010000U + number),
        camera_(camera),
        receiver_(receiver),
        trailer_(trailer),
        host_(std::in_place, number, [this] { forge(); }) {}
  ~forging_host() { stop(); }

  // Packets sent so far, and all of them.
  std::uint64_t count() const { return count_; }
  std::uint64_t stop() {
    isEnding_ = true;
    host_.reset();
    return count_;
  }

 private:
  void forge() {
    using std::chrono::steady_clock;
    const gige::descriptor socket(::socket(AF_INET, SOCK_RAW, IPPROTO_RAW));
    const sockaddr_in to = gige::internet_address(receiver_.address, 0);
    for (auto next = steady_clock::now(); !isEnding_; next += std::chrono::milliseconds(1)) {
      std::this_thread::sleep_until(next);
      for (int packet = 0; packet < 10; ++packet) {
        const auto bytes = forged(count_);
        const ssize_t sent = sendto(socket.get(), bytes.data(), bytes.size(), 0,
                                    reinterpret_cast<const sockaddr*>(&to), sizeof to);
        count_ += sent > 0 ? 1 : 0;
      }
    }
  }

  // An IP packet.
  std::vector<std::uint8_t> forged(std::uint64_t count) const {
    const std::array sources = {
        endpoint{own_, camera_.port},
        endpoint{camera_.address, static_cast<std::uint16_t>(camera_.port + 1 + count % 1000)}, camera_};
    const std::size_t kind = count % sources.size();
    const std::uint64_t place = count / sources.size();
    const std::uint64_t id = kind == 2 ? 20'000 + place % 10'000 : 1 + place / (trailer_ + 1) % 200;
    const auto packet = static_cast<std::uint32_t>(place % (trailer_ + 1));
    const auto content = stream_packet(id, packet);
    gige_protocol::byte_buffer<2000> bytes;
    const auto udpSize = static_cast<std::uint16_t>(gige_protocol::udpHeaderSize + content.size());
    bytes.put(std::uint16_t{0x4500});  // version 4, a header of 5 words
    bytes.put(static_cast<std::uint16_t>(gige_protocol::ipHeaderSize + udpSize));
    bytes.put_zeros(4);
    bytes.put(std::uint16_t{0x4011});  // time to live, UDP
    bytes.put_zeros(2);                // checksum, which the system fills in
    bytes.put(sources[kind].address);
    bytes.put(receiver_.address);
    bytes.put(sources[kind].port);
    bytes.put(receiver_.port);
    bytes.put(udpSize);
    bytes.put_zeros(2);  // no checksum
    bytes.put(content);
    return {bytes.view().begin(), bytes.view().end()};
  }
  std::vector<std::uint8_t> stream_packet(std::uint64_t id, std::uint32_t packet) const {
    const gige_protocol::packet_header header{.blockId = id, .packetId = packet};
    const auto copy = [](gige_protocol::byte_view all) {
      return std::vector<std::uint8_t>(all.begin(), all.end());
    };
    if (packet == 0) {
      return copy(
          make_leader(header, {.image = {.pixelFormat = 0x01080001, .width = 320, .height = 240}}).view());
    }
    if (packet == trailer_) {
      return copy(make_trailer(header, {.height = 240}).view());
    }
    std::vector<std::uint8_t> bytes(1472, 0xee);
    gige_protocol::store_packet_header(header, std::span(bytes).first<gige_protocol::extendedHeaderSize>());
    return bytes;
  }

  const std::uint32_t own_;
  const endpoint camera_;
  const endpoint receiver_;
  const std::uint32_t trailer_;
  std::atomic<bool> isEnding_ = false;
  std::atomic<std::uint64_t> count_ = 0;
  std::optional<far_host> host_;  // last, as its thread uses the others
};

}  // namespace test

#endif
