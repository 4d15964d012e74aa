// Streams over both kinds of socket, from a camera that sends what the test says.
#include "platform/gige/stream/frame_stream.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/gige/control/addresses.h"
#include "platform/gige/stream/sockets.h"
#include "tests/gige/stream/stream_packets.h"
#include "tests/own_network.h"

namespace {

using namespace std::chrono_literals;
using gige::transport_choice;
using record = camera_extension_health_record;
using clock_type = std::chrono::steady_clock;

constexpr std::uint32_t cameraAddress = 0x7f000002;
constexpr std::uint32_t patienceMs = 20'000;  // only what fails lasts that long
constexpr auto hang = 10s;                    // what takes that long does not end

const gige::sent_stream frames{
    .setup = {
        .payloadBytes = 256 * 64, .width = 256, .height = 64, .pixelFormat = fmtMono8, .packetBytes = 1500}};
const std::uint32_t framePackets = gige::packets_of(1, frames);

/// Sends what a test says, packet by packet.
class sending_camera {
 public:
  void send_from_another_port() { socket_ = gige::bind_udp(cameraAddress, 0, false); }
  std::uint16_t port() const { return ntohs(gige::bound_address(socket_.get()).sin_port); }

  void send_packet(std::uint16_t port, std::uint64_t id, std::uint32_t packet) const {
    send(port, gige::bytes_of(gige::true_packet(id, packet, frames), gige::lay_out(frames.setup)));
  }
  void send_frame(std::uint16_t port, std::uint64_t id) const {
    for (std::uint32_t packet = 0; packet < framePackets; ++packet) {
      send_packet(port, id, packet);
    }
  }
  void send(std::uint16_t port, gige_protocol::byte_view bytes) const {
    const sockaddr_in to = gige::internet_address(INADDR_LOOPBACK, port);
    sendto(socket_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }
  /// Whether a packet comes to the port that the stream is sent from.
  bool hears_a_knock() const {
    pollfd knock{socket_.get(), POLLIN, 0};
    return poll(&knock, 1, patienceMs) == 1;
  }

 private:
  gige::descriptor socket_ = gige::bind_udp(cameraAddress, 0, false);
};

gige::stream_setup setup_for(transport_choice transport) {
  return {.camera = "S1",
          .ownAddress = INADDR_LOOPBACK,
          .cameraAddress = cameraAddress,
          .transport = transport,
          .socketBufferBytes = 1U << 20U,
          .payloadBytes = static_cast<std::uint32_t>(frames.setup.payloadBytes),
          .width = frames.setup.width,
          .height = frames.setup.height,
          .pixelFormat = fmtMono8,
          .packetBytes = frames.setup.packetBytes,
          .ticksPerSecond = 1'000'000,
          .packetResendMs = 20,
          .frameTimeoutMs = 3 * patienceMs,
          .framesBuffered = 4,
          .memoryLimitBytes = 16U << 20U};
}

class stream : public testing::TestWithParam<transport_choice> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(hasOwnNetwork_) << "a network of its own is refused";
    open();
  }

  void open(std::uint64_t count = UINT64_MAX) {
    stream_.prepare(setup_);
    stream_.open(count);
  }

  /// Waits for a frame and gives it back; whether it was whole, that frame, and right in every byte.
  testing::AssertionResult arrives(std::uint64_t id) {
    GEV_BUFFER_OBJECT* frame = nullptr;
    if (const GEV_STATUS status = stream_.wait(&frame, patienceMs); status != GEVLIB_OK) {
      return testing::AssertionFailure() << "frame " << id << ": status " << status;
    }
    bool right = frame->id == id;
    for (std::size_t offset = 0; offset < frames.setup.payloadBytes; ++offset) {
      right = right && frame->address[offset] == gige::content(id, offset);
    }
    stream_.release(frame);
    return right ? testing::AssertionSuccess() : testing::AssertionFailure() << "frame " << id << " is wrong";
  }

  record health() const {
    record read{};
    stream_.read_health(read);
    return read;
  }
  /// Waits until the figure, which the receiving thread counts in its own time, is that.
  bool comes_to(std::uint64_t record::*figure, std::uint64_t value) const {
    const auto end = clock_type::now() + std::chrono::milliseconds(patienceMs);
    while (health().*figure != value && clock_type::now() < end) {
      std::this_thread::sleep_for(1ms);
    }
    return health().*figure == value;
  }

  static bool enter_own_network() {
    static const bool own = test::enter_own_network();
    return own;
  }

  const bool hasOwnNetwork_ = enter_own_network();  // before there is a socket
  gige::stream_setup setup_ = setup_for(GetParam());
  sending_camera camera_;
  gige::frame_stream stream_;
};

TEST_P(stream, delivers_frames_byte_for_byte_and_counts_their_packets) {
  for (std::uint64_t id = 1; id <= 50; ++id) {
    camera_.send_frame(stream_.port(), id);
    ASSERT_TRUE(arrives(id));
  }
  EXPECT_TRUE(comes_to(&record::packets_received, 50 * framePackets));
  EXPECT_EQ(health().frames_whole, 50U);
  EXPECT_EQ(health().packets_lost, 0U);
  EXPECT_EQ(health().frame_id, 50U);
  EXPECT_EQ(health().frame_time_ns, 50'000'000U);  // 50 000 ticks of a microsecond
  EXPECT_EQ(health().transport,
            GetParam() == transport_choice::udp ? camera_extension_udp : camera_extension_packet_ring);
}

TEST_P(stream, tells_of_a_broken_frame_once_and_without_its_data) {
  camera_.send_packet(stream_.port(), 1, 0);
  camera_.send_packet(stream_.port(), 1, framePackets - 1);
  GEV_BUFFER_OBJECT* frame = nullptr;
  ASSERT_EQ(stream_.wait(&frame, patienceMs), GEVLIB_ERROR_FRAME_INCOMPLETE);
  EXPECT_EQ(frame->status, GEVLIB_ERROR_FRAME_INCOMPLETE);
  EXPECT_EQ(frame->address, nullptr);
  EXPECT_EQ(stream_.release(frame), GEVLIB_OK);
  EXPECT_EQ(stream_.release(frame), GEVLIB_ERROR_PARAMETER_INVALID);
  camera_.send_frame(stream_.port(), 2);
  EXPECT_TRUE(arrives(2));
}

TEST_P(stream, knocks_at_the_port_that_the_camera_sends_from) {
  stream_.close();
  setup_.sourcePort = camera_.port();
  open();
  EXPECT_TRUE(camera_.hears_a_knock());
}

TEST_P(stream, holds_as_many_frames_for_a_late_consumer_as_it_was_told) {
  for (std::uint64_t id = 1; id <= 20; ++id) {
    camera_.send_frame(stream_.port(), id);
  }
  ASSERT_TRUE(comes_to(&record::packets_received, 20 * framePackets));
  for (std::uint64_t id = 1; id <= setup_.framesBuffered; ++id) {
    EXPECT_TRUE(arrives(id));
  }
  EXPECT_GT(health().frames_dropped, 0U);
  EXPECT_EQ(health().frames_whole + health().frames_dropped, 20U);
}

TEST_P(stream, starts_again_at_the_same_port_with_ids_from_1_and_nothing_of_before) {
  const std::uint16_t port = stream_.port();
  for (int transfer = 0; transfer < 5; ++transfer) {
    camera_.send_from_another_port();
    camera_.send_frame(port, 1);
    ASSERT_TRUE(arrives(1));
    camera_.send_packet(port, 2, 0);
    stream_.close();
    camera_.send_packet(port, 2, 1);
    open();
    ASSERT_EQ(stream_.port(), port);
  }
  EXPECT_EQ(health().frames_whole, 5U);
}

TEST_P(stream, hands_over_as_many_frames_as_it_was_opened_for) {
  stream_.close();
  open(2);
  for (std::uint64_t id = 1; id <= 3; ++id) {
    camera_.send_frame(stream_.port(), id);
  }
  EXPECT_TRUE(arrives(1));
  EXPECT_TRUE(arrives(2));
  ASSERT_TRUE(comes_to(&record::frames_whole, 3));
  GEV_BUFFER_OBJECT* frame = nullptr;
  EXPECT_EQ(stream_.wait(&frame, 0), GEVLIB_ERROR_TIME_OUT);
}

TEST_P(stream, ends_a_wait_at_once_when_it_is_closed_or_lost) {
  for (const bool isLost : {false, true}) {
    auto waiting = std::async(std::launch::async, [this] {
      GEV_BUFFER_OBJECT* frame = nullptr;
      return stream_.wait(&frame, 10 * patienceMs);
    });
    std::this_thread::sleep_for(20ms);
    isLost ? stream_.lose() : stream_.close();
    ASSERT_EQ(waiting.wait_for(hang), std::future_status::ready);
    EXPECT_EQ(waiting.get(), isLost ? GEVLIB_ERROR_DEVICE_LOST : GEVLIB_ERROR_ABORTED);
  }
}

TEST_P(stream, closes_while_packets_come_as_fast_as_they_can) {
  std::atomic<bool> ended = false;
  std::thread flood([&, port = stream_.port()] {
    for (std::uint64_t id = 1; !ended; ++id) {
      camera_.send_frame(port, id);
    }
  });
  GEV_BUFFER_OBJECT* frame = nullptr;
  EXPECT_NE(stream_.wait(&frame, patienceMs), GEVLIB_ERROR_TIME_OUT);
  const auto before = clock_type::now();
  stream_.close();
  EXPECT_LT(clock_type::now() - before, hang);
  ended = true;
  flood.join();
}

TEST_P(stream, finds_the_largest_packet_that_arrives) {
  stream_.close();
  const auto carriedUpTo = [this](std::uint32_t largest) {
    return stream_.find_packet_size(0, [=, this](std::uint32_t size) {
      if (size <= largest) {
        camera_.send(stream_.port(), std::vector<std::uint8_t>(size - gige_protocol::ipHeaderSize -
                                                               gige_protocol::udpHeaderSize));
      }
      return size;
    });
  };
  EXPECT_EQ(carriedUpTo(16'260), 16'260U);
  EXPECT_EQ(carriedUpTo(5000), 4088U);
  EXPECT_EQ(carriedUpTo(1500), 1500U);
  EXPECT_EQ(carriedUpTo(0), 1500U);  // no test packet ever comes
}

TEST_P(stream, refuses_by_name_what_cannot_be) {
  stream_.close();
  auto wrong = setup_;
  wrong.payloadBytes = wrong.width * wrong.height - 1;
  EXPECT_THROW(stream_.prepare(wrong), std::invalid_argument);
  EXPECT_FALSE(stream_.prepared());
  wrong = setup_;
  wrong.memoryLimitBytes = std::uint64_t{wrong.payloadBytes} * (wrong.framesBuffered - 1);
  EXPECT_THROW(stream_.prepare(wrong), std::bad_alloc);
  wrong = setup_;
  wrong.ownAddress = 0x0a090909;  // none of ours
  EXPECT_THROW(stream_.prepare(wrong), std::system_error);
  open();
  camera_.send_frame(stream_.port(), 1);
  EXPECT_TRUE(arrives(1));
}

INSTANTIATE_TEST_SUITE_P(over, stream, testing::Values(transport_choice::udp, transport_choice::packet_ring),
                         [](const auto& of) {
                           return of.param == transport_choice::udp ? "udp" : "a_packet_ring";
                         });

/// Without privileges, in the calling thread and its children.
void drop_privileges() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  ASSERT_EQ(syscall(SYS_capset, &header, none.data()), 0);
}

TEST(unprivileged_stream, is_received_over_udp_unless_a_packet_ring_is_asked_for_by_name) {
  ASSERT_TRUE(test::enter_own_network());
  std::thread([] {
    const sending_camera sender;
    gige::frame_stream stream;
    drop_privileges();
    EXPECT_THROW(stream.prepare(setup_for(transport_choice::packet_ring)), std::system_error);
    stream.prepare(setup_for(transport_choice::automatic));
    stream.open(1);
    sender.send_frame(stream.port(), 1);
    GEV_BUFFER_OBJECT* frame = nullptr;
    EXPECT_EQ(stream.wait(&frame, patienceMs), GEVLIB_OK);
    record health{};
    stream.read_health(health);
    EXPECT_EQ(health.transport, camera_extension_udp);
  }).join();
}

}  // namespace
