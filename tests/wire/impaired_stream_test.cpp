// Streams of an emulated camera over a path that loses, reorders, repeats, refuses and forges packets. What
// happens to a packet of the camera follows from its number, so that the frames that must break are known
// before.
#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/gige/control/control_channel.h"
#include "platform/gige/stream/frame_stream.h"
#include "platform/gvcam/device.h"
#include "platform/picture/picture.h"
#include "tests/own_network.h"
#include "tests/wire/forging_host.h"

namespace {

using namespace std::chrono_literals;
using gige::transport_choice;
using record = camera_extension_health_record;
namespace protocol = gige_protocol;
namespace registers = gige_protocol::registers;

constexpr std::uint32_t width = 320;
constexpr std::uint32_t height = 240;
constexpr std::size_t frameBytes = std::size_t{width} * height;
constexpr std::uint32_t patienceMs = 20'000;  // only what fails lasts that long

/// A camera's rate and packets, and what happens to them on the way.
struct path {
  const char* name;
  gvcam::impairments faults{};
  bool asksAgain = true;
  std::uint32_t framesPerSecond = 50;
  std::uint32_t packetBytes = 1500;
  std::uint64_t mostBroken = 1;  // of 100 frames
};

void PrintTo(const path& of, std::ostream* to) {
  *to << of.name;
}

/// Packets of one frame.
std::uint32_t packet_count(const path& of) {
  const std::size_t perPacket = protocol::payload_per_packet(of.packetBytes, protocol::id_mode::standard);
  return 2 + static_cast<std::uint32_t>(protocol::payload_packet_count(frameBytes, perPacket));
}

/// Packets of a frame that do not arrive by themselves.
std::vector<std::uint32_t> lost_packets(const path& of, std::uint64_t id) {
  const auto sent = gvcam::sending_order(of.faults, id, packet_count(of));
  const std::set<std::uint32_t> arrived(sent.begin(), sent.end());
  std::vector<std::uint32_t> lost;
  for (std::uint32_t packet = 0; packet < packet_count(of); ++packet) {
    if (!arrived.contains(packet)) {
      lost.push_back(packet);
    }
  }
  return lost;
}

/// Whether a packet of that frame can never arrive.
bool must_break(const path& of, std::uint64_t id) {
  return std::ranges::any_of(lost_packets(of, id), [&](std::uint32_t packet) {
    return !of.asksAgain || gvcam::fate_of_resend(of.faults, id, packet, 1) == gvcam::resend_fate::refused;
  });
}

using addresses = std::pair<std::uint32_t, std::uint32_t>;
constexpr addresses onLoopback{INADDR_LOOPBACK, 0x7f000003};  // of the camera, of this host

class emulated_camera : public testing::Test {
 protected:
  void SetUp() override {
    static const bool own = test::enter_own_network();
    ASSERT_TRUE(own) << "a network of its own is refused";
  }

  void set_up_camera(const path& over) {
    path_ = over;
    setup_.width = width;
    setup_.height = height;
    setup_.framesPerSecond = path_.framesPerSecond;
    setup_.hasNoise = false;
    setup_.packetSize = path_.packetBytes;
  }
  void set_faults(const gvcam::impairments& now) {
    gvcam::faults all;
    all.link = now;
    camera_->set_faults(all);
  }
  void make_camera(std::uint32_t address) {
    camera_ = std::make_unique<gvcam::device>(gvcam::camera_identity{"S1", address, ""}, setup_, scene_,
                                              gvcam::faults());
    set_faults(path_.faults);
  }
  void start(transport_choice transport, bool isTriggered, const addresses& at = onLoopback) {
    control_.emplace(std::make_shared<gige::connection_state>("S1"), at.second, at.first, gige::patience{});
    control_->write_register(registers::controlChannelPrivilege, protocol::control_privilege::control);
    control_->write_register(registers::heartbeatTimeout, 600'000);
    sourcePort_ = static_cast<std::uint16_t>(control_->read_register(registers::streamSourcePort));
    stream_.prepare({.camera = "S1",
                     .ownAddress = at.second,
                     .cameraAddress = at.first,
                     .sourcePort = sourcePort_,
                     .transport = transport,
                     .socketBufferBytes = socketBufferBytes_,
                     .payloadBytes = static_cast<std::uint32_t>(frameBytes),
                     .width = width,
                     .height = height,
                     .pixelFormat = fmtMono8,
                     .packetBytes = path_.packetBytes,
                     .cameraResends = path_.asksAgain,
                     .maxPacketResends = path_.asksAgain ? 1'000'000U : 0U,
                     .packetResendMs = 20,
                     .frameTimeoutMs = 3 * patienceMs,
                     .framesBuffered = 64,
                     .memoryLimitBytes = 64U << 20U});
    control_->write_register(registers::streamDestination, at.second);
    control_->write_register(registers::streamPort, stream_.port());
    stream_.open(UINT64_MAX);
    control_->write_register(gvcam::features::triggerMode, isTriggered ? 1 : 0);
    control_->write_register(gvcam::features::acquisition, 1);
  }
  /// On the loopback interface.
  void start(const path& over, transport_choice transport, bool isTriggered) {
    set_up_camera(over);
    make_camera(onLoopback.first);
    start(transport, isTriggered);
  }
  void trigger() { control_->write_register(gvcam::features::triggerSoftware, 1); }

  bool is_right(const GEV_BUFFER_OBJECT& frame) const {
    picture::picture_settings settings;
    settings.noise = false;
    settings.timeUs = frame.id * 1'000'000 / path_.framesPerSecond;
    settings.width = width;
    settings.height = height;
    std::vector<std::uint8_t> pixels(frameBytes);
    picture::draw(scene_, settings, pixels.data());
    return std::equal(pixels.begin(), pixels.end(), frame.address);
  }
  /// The next frame: its number, and whether it is whole, which it only is with the right pixels.
  std::pair<std::uint64_t, bool> receive() {
    GEV_BUFFER_OBJECT* frame = nullptr;
    const GEV_STATUS status = stream_.wait(&frame, patienceMs);
    if (frame == nullptr) {
      ADD_FAILURE() << "no frame, status " << status;
      return {UINT64_MAX, false};
    }
    const std::pair result(frame->id, status == GEVLIB_OK);
    EXPECT_TRUE(!result.second || is_right(*frame)) << "frame " << frame->id << " is wrong";
    stream_.release(frame);
    return result;
  }
  /// The numbers of the whole frames up to that one, of a camera that runs freely.
  std::set<std::uint64_t> receive_up_to(std::uint64_t last) {
    std::set<std::uint64_t> whole;
    for (std::uint64_t id = 0; id < last;) {
      const auto [received, isWhole] = receive();
      EXPECT_GT(received, id);
      id = received;
      if (isWhole && id <= last) {
        whole.insert(id);
      }
    }
    return whole;
  }

  /// Of all frames, once the transfer is ended.
  record end_and_read_health() {
    stream_.close();
    record health{};
    stream_.read_health(health);
    return health;
  }

  path path_{};
  picture::scene scene_{width, height};
  gvcam::camera_setup setup_;
  std::unique_ptr<gvcam::device> camera_;
  std::optional<gige::control_channel> control_;
  std::uint16_t sourcePort_ = 0;
  std::uint32_t socketBufferBytes_ = 0;  // 0: as the receiver chooses
  gige::frame_stream stream_;
};

constexpr transport_choice transports[] = {transport_choice::udp, transport_choice::packet_ring};

using over_a_path = std::tuple<path, transport_choice>;
std::string name_of(const testing::TestParamInfo<over_a_path>& of) {
  const auto& [over, transport] = of.param;
  return over.name + std::string(transport == transport_choice::udp ? "_on_udp" : "_on_a_packet_ring");
}

// A frame is made only when the one before the last was handed over. So none is given up for the next ones,
// however long the machine takes, and the frames that break are exactly those that must.
class stepwise : public emulated_camera, public testing::WithParamInterface<over_a_path> {};

TEST_P(stepwise, breaks_the_frames_that_cannot_be_brought_over_and_no_others) {
  constexpr std::uint64_t frames = 100;
  start(std::get<path>(GetParam()), std::get<transport_choice>(GetParam()), true);
  trigger();
  std::uint64_t lost = 0;
  for (std::uint64_t id = 1; id <= frames; ++id) {
    trigger();
    EXPECT_EQ(receive(), std::pair(id, !must_break(path_, id)));
    lost += lost_packets(path_, id).size();
  }
  const record health = end_and_read_health();
  EXPECT_EQ(health.kernel_drops, 0U);
  EXPECT_EQ(health.frames_missing, 0U);
  if (path_.faults.duplicate != 0) {
    EXPECT_GT(health.packets_duplicate, 0U);
  }
  if (!path_.asksAgain) {
    EXPECT_EQ(health.packets_requested, 0U);
  } else if (path_.faults.refuse == 0) {
    EXPECT_GE(health.packets_received_again, lost);
  }
}

INSTANTIATE_TEST_SUITE_P(
    over, stepwise,
    testing::Combine(testing::Values(path{"a_good_path", {}}, path{"one_in_1000_lost", {.loss = 0.001}},
                                     path{"one_in_100_lost", {.loss = 0.01}},
                                     path{"one_in_10_lost", {.loss = 0.1}},
                                     path{"bursts_lost", {.loss = 0.02, .burst = 16}},
                                     path{"reordered_and_repeated", {.reorder = 0.2, .duplicate = 0.1}},
                                     path{"lost_and_not_asked_for", {.loss = 0.0005}, false},
                                     path{"a_third_refused", {.loss = 0.01, .refuse = 0.3}}),
                     testing::ValuesIn(transports)),
    name_of);

// A camera that does not wait for anybody. Its threads and the receiver's go before everything else on the
// machine. What the machine holds up nevertheless shows in the health record: the kernel's drops, and packets
// that came after their frame had ended.
class free_running : public stepwise {
 protected:
  void SetUp() override {
    stepwise::SetUp();
    const sched_param priority{.sched_priority = 1};
    if (sched_setscheduler(0, SCHED_FIFO, &priority) != 0) {
      GTEST_SKIP() << "real-time priority is refused";
    }
  }
  void TearDown() override {
    const sched_param none{};
    sched_setscheduler(0, SCHED_OTHER, &none);
  }
};

// A sanitized camera cannot answer at these rates.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif

TEST_P(free_running, loses_few_frames_besides_those_that_cannot_be_brought_over) {
  start(std::get<path>(GetParam()), std::get<transport_choice>(GetParam()), false);
  const std::uint64_t frames = 2 * path_.framesPerSecond;
  const auto whole = receive_up_to(frames);
  const record health = end_and_read_health();
  std::uint64_t broken = 0;
  for (std::uint64_t id = 1; id <= frames; ++id) {
    const bool mustBreak = must_break(path_, id);
    EXPECT_FALSE(mustBreak && whole.contains(id)) << "frame " << id;
    broken += !mustBreak && !whole.contains(id) ? 1 : 0;
  }
  if (!isSanitized) {
    EXPECT_LE(broken, frames * path_.mostBroken / 100 + health.packets_duplicate + health.kernel_drops);
  }
}

INSTANTIATE_TEST_SUITE_P(
    over, free_running,
    testing::Combine(
        testing::Values(path{"one_in_1000_lost_at_200_hz", {.loss = 0.001}, true, 200, 9000},
                        path{"one_in_100_lost_at_200_hz", {.loss = 0.01}, true, 200, 9000},
                        path{"one_in_100_lost_at_100_hz", {.loss = 0.01}, true, 100},
                        path{"one_in_10_lost_at_50_hz", {.loss = 0.1}, true, 50, 1500, 2},
                        path{"bursts_lost_at_50_hz", {.loss = 0.01, .burst = 16}},
                        path{"a_third_refused_at_50_hz", {.loss = 0.01, .refuse = 0.3}, true, 50, 1500, 0}),
        testing::ValuesIn(transports)),
    name_of);

TEST_F(emulated_camera, packets_that_the_kernel_dropped_are_counted_and_asked_for_again) {
  socketBufferBytes_ = 2048;  // room for one packet
  start({}, transport_choice::udp, true);
  record health{};
  for (std::uint64_t id = 1; health.kernel_drops == 0; ++id) {
    trigger();
    ASSERT_EQ(receive(), std::pair(id, true));
    stream_.read_health(health);
  }
}

class on_both_transports : public emulated_camera, public testing::WithParamInterface<transport_choice> {};

TEST_P(on_both_transports, a_camera_that_was_silent_is_received_again_and_its_silence_counted) {
  start({}, GetParam(), true);
  std::uint64_t id = 0;
  for (int silences = 0; silences < 3; ++silences) {
    trigger();
    EXPECT_EQ(receive(), std::pair(++id, true));
    set_faults({.isSilent = true});
    for (int frames = 0; frames < 10; ++frames, ++id) {
      trigger();
    }
    GEV_BUFFER_OBJECT* frame = nullptr;
    EXPECT_EQ(stream_.wait(&frame, 500), GEVLIB_ERROR_TIME_OUT);
    set_faults({});
  }
  trigger();
  EXPECT_EQ(receive(), std::pair(++id, true));
  const record health = end_and_read_health();
  EXPECT_EQ(health.frames_missing, 30U);
  EXPECT_EQ(health.frames_whole, 4U);
  EXPECT_EQ(health.frames_incomplete, 0U);
}

/// Packets that the system dropped before it knew whose they were, on the whole machine.
std::uint64_t backlog_drops() {
  std::ifstream file("/proc/net/softnet_stat");
  std::uint64_t sum = 0;
  for (std::string line; std::getline(file, line);) {
    std::uint64_t processed = 0;
    std::uint64_t dropped = 0;
    std::istringstream(line) >> std::hex >> processed >> dropped;
    sum += dropped;
  }
  return sum;
}

// The camera and the forger are hosts of their own; a bridge connects them with this one.
TEST_P(on_both_transports, frames_are_right_while_another_host_forges_their_packets) {
  constexpr addresses onBridge{0x0a010002, 0x0a010001};
  constexpr std::uint64_t forgedPackets = 20'000;
  set_up_camera({.name = "bridged"});
  ASSERT_TRUE(test::make_bridge());
  std::promise<void> isMade;
  std::promise<void> isDone;
  const test::far_host cameraHost(2, [&] {
    make_camera(onBridge.first);
    isMade.set_value();
    isDone.get_future().wait();
    camera_.reset();
  });
  const struct at_end {
    std::promise<void>& isDone;
    ~at_end() { isDone.set_value(); }
  } end{isDone};  // also when an assertion ends the test
  isMade.get_future().wait();
  start(GetParam(), true, onBridge);
  // A receiver that has no frame yet takes any frame for the first.
  trigger();
  trigger();
  ASSERT_EQ(receive(), std::pair(std::uint64_t{1}, true));
  test::forging_host forger(3, {onBridge.first, sourcePort_}, {onBridge.second, stream_.port()},
                            packet_count(path_) - 1);
  record health{};
  const auto counted = [&] {
    stream_.read_health(health);
    return health.packets_foreign + health.kernel_drops + backlog_drops();
  };
  // The bridge drops packets until it knows of the cable.
  while (health.packets_foreign == 0) {
    stream_.read_health(health);
  }
  const std::uint64_t countedBefore = counted();
  const std::uint64_t forgedBefore = forger.count();
  for (std::uint64_t id = 2; forger.count() < forgedBefore + forgedPackets; ++id) {
    trigger();
    ASSERT_EQ(receive(), std::pair(id, true));
  }
  const std::uint64_t forged = forger.stop();
  // The last packet is counted with the one behind it, and that is one of the camera's.
  trigger();
  for (const auto limit = std::chrono::steady_clock::now() + 20s;
       counted() - countedBefore < forged - forgedBefore && std::chrono::steady_clock::now() < limit;) {
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_GE(counted() - countedBefore, forged - forgedBefore);
  health = end_and_read_health();
  EXPECT_LE(health.packets_foreign, forged);
  EXPECT_LE(health.packets_duplicate, health.packets_requested);
}

INSTANTIATE_TEST_SUITE_P(over, on_both_transports, testing::ValuesIn(transports), [](const auto& of) {
  return of.param == transport_choice::udp ? "udp" : "a_packet_ring";
});

}  // namespace
