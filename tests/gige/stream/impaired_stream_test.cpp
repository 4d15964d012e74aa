// Streams of an emulated camera over a path that loses, reorders, repeats and refuses packets. What happens
// to a packet follows from its number, so that the frames that must break are known before.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/gige/control/control_channel.h"
#include "platform/gige/stream/frame_stream.h"
#include "platform/gvcam/device.h"
#include "platform/picture/picture.h"
#include "tests/gige/stream/sending_camera.h"

namespace {

using gige::transport_choice;
namespace registers = gige_protocol::registers;

constexpr std::uint32_t cameraAddress = INADDR_LOOPBACK;
constexpr std::uint32_t ownAddress = 0x7f000003;
constexpr std::uint32_t width = 320;
constexpr std::uint32_t height = 240;
constexpr std::uint32_t packetBytes = 1500;
constexpr std::size_t frameBytes = std::size_t{width} * height;
constexpr std::uint64_t framesToSee = 100;
constexpr std::uint64_t frameUs = 20'000;
constexpr std::uint32_t patienceMs = 20'000;  // only what fails lasts that long

/// What happens on the way, and what may come of it.
struct path {
  const char* name;
  gvcam::impairments faults;
  bool asksAgain = true;
  // A camera that the machine holds up within a frame is asked for packets that it has not sent yet, and
  // refuses those, too.
  bool mayBreakOthers = false;
};

void PrintTo(const path& of, std::ostream* to) {
  *to << of.name;
}

gvcam::faults on_link(const gvcam::impairments& what) {
  gvcam::faults faults;
  faults.link = what;
  return faults;
}

class emulated_camera : public testing::Test {
 protected:
  void SetUp() override {
    static const bool own = test::enter_own_network();
    ASSERT_TRUE(own) << "a network of its own is refused";
  }

  void stream_over(const path& way, transport_choice transport) {
    path_ = way;
    camera_.reset();  // its address is needed
    setup_.width = width;
    setup_.height = height;
    setup_.framesPerSecond = 1e6 / frameUs;
    setup_.hasNoise = false;
    setup_.packetSize = packetBytes;
    camera_ = std::make_unique<gvcam::device>(gvcam::camera_identity{"S1", cameraAddress, ""}, setup_, scene_,
                                              on_link(path_.faults));
    control_.emplace(std::make_shared<gige::connection_state>("S1"), ownAddress, cameraAddress, gige::patience{});
    start(transport);
  }
  void start(transport_choice transport) {
    control_->write_register(registers::controlChannelPrivilege, gige_protocol::control_privilege::control);
    control_->write_register(registers::heartbeatTimeout, 600'000);
    stream_.prepare(
        {.camera = "S1",
         .ownAddress = ownAddress,
         .cameraAddress = cameraAddress,
         .sourcePort = static_cast<std::uint16_t>(control_->read_register(registers::streamSourcePort)),
         .transport = transport,
         .payloadBytes = static_cast<std::uint32_t>(frameBytes),
         .width = width,
         .height = height,
         .pixelFormat = fmtMono8,
         .packetBytes = packetBytes,
         .cameraResends = path_.asksAgain,
         .maxPacketResends = 100,
         .packetResendMs = path_.asksAgain ? 30U : 3000U,  // packets that are only overtaken come by then
         .frameTimeoutMs = 3 * patienceMs,
         .framesBuffered = 8,
         .memoryLimitBytes = 64U << 20U});
    control_->write_register(registers::streamDestination, ownAddress);
    control_->write_register(registers::streamPort, stream_.port());
    stream_.open(UINT64_MAX);
    control_->write_register(gvcam::features::triggerMode, 1);
    control_->write_register(gvcam::features::acquisition, 1);
  }
  /// Frames come one by one, so that none is given up for the next ones, however long the machine takes.
  void trigger() { control_->write_register(gvcam::features::triggerSoftware, 1); }

  /// Whether the camera cannot bring that frame over, however often it is asked.
  bool must_break(std::uint64_t id) const {
    constexpr std::size_t perPacket =
        gige_protocol::payload_per_packet(packetBytes, gige_protocol::id_mode::standard);
    constexpr auto packets =
        2 + static_cast<std::uint32_t>(gige_protocol::payload_packet_count(frameBytes, perPacket));
    const auto sent = gvcam::sending_order(path_.faults, id, packets);
    const std::set<std::uint32_t> arrived(sent.begin(), sent.end());
    for (std::uint32_t packet = 0; packet < packets; ++packet) {
      const bool isGone = !path_.asksAgain ||
                          gvcam::fate_of_resend(path_.faults, id, packet, 1) == gvcam::resend_fate::refused;
      if (isGone && !arrived.contains(packet)) {
        return true;
      }
    }
    return false;
  }

  bool is_right(const GEV_BUFFER_OBJECT& frame) const {
    picture::picture_settings settings;
    settings.noise = false;
    settings.timeUs = frame.id * frameUs;
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
      return {framesToSee, false};
    }
    const std::pair result(frame->id, status == GEVLIB_OK);
    EXPECT_TRUE(!result.second || is_right(*frame)) << "frame " << frame->id;
    stream_.release(frame);
    return result;
  }

  /// Of all frames, since the transfer is ended.
  camera_extension_health_record health() {
    stream_.close();
    camera_extension_health_record read{};
    stream_.read_health(read);
    return read;
  }

  path path_{};
  picture::scene scene_{width, height};
  gvcam::camera_setup setup_;
  std::unique_ptr<gvcam::device> camera_;
  std::optional<gige::control_channel> control_;
  gige::frame_stream stream_;
};

class impaired_stream : public emulated_camera,
                        public testing::WithParamInterface<std::tuple<path, transport_choice>> {};

TEST_P(impaired_stream, breaks_the_frames_that_cannot_be_brought_over_and_no_others) {
  std::apply([this](const auto&... given) { stream_over(given...); }, GetParam());
  for (std::uint64_t id = 1; id <= framesToSee; ++id) {
    trigger();
    const auto [received, isWhole] = receive();
    EXPECT_EQ(received, id);
    EXPECT_TRUE(isWhole == !must_break(id) || (!isWhole && path_.mayBreakOthers)) << "frame " << id;
  }
  const auto health = this->health();
  EXPECT_EQ(health.frames_whole + health.frames_incomplete, framesToSee);
  EXPECT_TRUE(health.packets_received_again != 0 || !path_.asksAgain || path_.faults.loss == 0);
  EXPECT_TRUE(health.packets_requested == 0 || path_.asksAgain);
  EXPECT_TRUE(health.packets_duplicate != 0 || path_.faults.duplicate == 0);
  EXPECT_EQ(health.kernel_drops, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    over, impaired_stream,
    testing::Combine(testing::Values(path{"a_good_path", {}}, path{"one_in_1000_lost", {.loss = 0.001}},
                                     path{"one_in_100_lost", {.loss = 0.01}},
                                     path{"one_in_10_lost", {.loss = 0.1}},
                                     path{"bursts_lost", {.loss = 0.02, .burst = 16}},
                                     path{"reordered_and_repeated", {.reorder = 0.2, .duplicate = 0.1}},
                                     path{"lost_and_not_asked_for", {.loss = 0.0005}, false},
                                     path{"a_third_refused", {.loss = 0.01, .refuse = 0.3}, true, true}),
                     testing::Values(transport_choice::udp, transport_choice::packet_ring)),
    [](const auto& of) {
      const bool isUdp = std::get<transport_choice>(of.param) == transport_choice::udp;
      return std::string(std::get<path>(of.param).name) + (isUdp ? "_on_udp" : "_on_a_packet_ring");
    });

TEST_F(emulated_camera, is_received_again_when_it_was_silent_and_returns) {
  stream_over({}, transport_choice::udp);
  trigger();
  EXPECT_EQ(receive(), std::pair(std::uint64_t{1}, true));
  camera_->set_faults(on_link({.isSilent = true}));
  for (int frames = 0; frames < 10; ++frames) {
    trigger();
  }
  GEV_BUFFER_OBJECT* frame = nullptr;
  EXPECT_EQ(stream_.wait(&frame, 500), GEVLIB_ERROR_TIME_OUT);
  camera_->set_faults({});
  trigger();
  EXPECT_EQ(receive(), std::pair(std::uint64_t{12}, true));
  EXPECT_EQ(health().frames_missing, 10U);
}

/// Sends packets of frames that look like the camera's, 10 000 a second, until it goes.
class forger {
 public:
  explicit forger(std::uint16_t port) : thread_([this, port] { forge(port); }) {}
  ~forger() {
    ended_ = true;
    thread_.join();
  }
  forger(const forger&) = delete;
  forger& operator=(const forger&) = delete;

 private:
  void forge(std::uint16_t port) const {
    const gige::descriptor socket = test::bound_socket(0x7f000004, 0);
    const sockaddr_in to = gige::internet_address(ownAddress, port);
    std::array<std::uint8_t, 1400> bytes{};
    for (std::uint32_t packet = 0; !ended_; ++packet) {
      const gige_protocol::packet_head head{.blockId = packet / 50 % 200 + 1, .packetId = packet % 50};
      gige_protocol::store_packet_head(head, std::span(bytes).first<gige_protocol::extendedHeadSize>());
      sendto(socket.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }

  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

TEST_F(emulated_camera, is_received_right_while_another_host_forges_its_packets) {
  for (const auto transport : {transport_choice::udp, transport_choice::packet_ring}) {
    stream_over({}, transport);
    const forger other(stream_.port());
    for (std::uint64_t id = 1; id <= framesToSee; ++id) {
      trigger();
      EXPECT_EQ(receive(), std::pair(id, true));
    }
    const auto counted = health();
    EXPECT_GT(counted.packets_foreign, 0U);
    EXPECT_EQ(counted.packets_duplicate, 0U);
    stream_.clear();
  }
}

}  // namespace
