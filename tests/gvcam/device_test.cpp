// Emulated cameras and their client, over sockets in a network of the test's own.
#include "platform/gvcam/device.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <cstdlib>
#include <map>
#include <set>

#include "tests/gvcam/client_commands.h"

namespace gvcam_test {
namespace {

using namespace std::chrono_literals;
using bytes = std::vector<std::uint8_t>;
using gvcam::device;
namespace features = gvcam::features;

constexpr std::uint32_t address = 0x7f000001;  // of camera and client
constexpr std::uint32_t side = 64;

bytes receive(const gvcam::udp_socket& from, std::chrono::milliseconds patience) {
  pollfd ready{from.descriptor(), POLLIN, 0};
  bytes datagram(65536);
  const bool isReady = poll(&ready, 1, static_cast<int>(patience.count())) == 1;
  const auto arrival = isReady ? from.receive(datagram) : std::nullopt;
  datagram.resize(arrival ? arrival->size : 0);
  return datagram;
}

// A program that controls a camera and receives its stream.
class client {
 public:
  client() {
    const int room = 16 << 20;  // for as long as the machine may hold up the test
    EXPECT_EQ(setsockopt(stream_.descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room), 0);
  }
  void write(std::uint32_t at, std::uint32_t value) {
    control_.send({address, gige_protocol::controlPort}, write_word(++id_, at, value).view());
    ASSERT_EQ(status_of(receive(control_, 10s)), status::success) << std::hex << at;
  }
  void connect() {
    write(standard::controlChannelPrivilege, controlAccess);
    write(standard::heartbeatTimeout, 60'000);
    write(standard::streamDestination, address);
    write(standard::streamPort, stream_.port());
  }
  // The head of the next packet; block id 0 when none comes.
  gige_protocol::packet_header packet(std::chrono::milliseconds patience = 10s) const {
    const auto head = gige_protocol::parse_packet_header(receive(stream_, patience));
    return head ? *head : gige_protocol::packet_header{};
  }

 private:
  gvcam::udp_socket control_{gvcam::endpoint{address, 0}};
  gvcam::udp_socket stream_{gvcam::endpoint{address, 0}};
  std::uint16_t id_ = 0;
};

// The packets of a frame by id; 10 of them make it whole: 4096 bytes are 8 packets of at most 540 bytes.
using received_frames = std::map<std::uint64_t, std::set<std::uint32_t>>;
constexpr std::size_t packetsOfFrame = 10;

class network : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(unshare(CLONE_NEWNET), 0) << "a network of its own is refused";
    ASSERT_EQ(std::system("ip link set lo up && ip route add 255.255.255.255 dev lo"), 0);
  }
  network() {
    setup.width = setup.height = side;
    setup.packetSize = 576;
    setup.framesPerSecond = 100;
  }
  void start() {
    camera.reset();  // its address is needed
    camera =
        std::make_unique<device>(gvcam::camera_identity{"CAM", address, ""}, setup, scene, gvcam::faults());
  }

  gvcam::camera_setup setup;
  picture::scene scene{side, side};
  std::unique_ptr<device> camera;
};

TEST_F(network, an_acquisition_begins_with_frame_1_and_ends_with_a_whole_one) {
  start();
  client receiver;
  receiver.connect();
  for (int run = 0; run < 3; ++run) {
    received_frames frames;
    receiver.write(features::acquisition, 1);
    bool isStopped = false;
    for (auto head = receiver.packet(); head.blockId != 0; head = receiver.packet(isStopped ? 30ms : 10s)) {
      frames[head.blockId].insert(head.packetId);
      if (frames.size() == 4 && !std::exchange(isStopped, true)) {
        receiver.write(features::acquisition, 0);
      }
    }
    EXPECT_EQ(frames.begin()->first, 1U);
    EXPECT_THAT(frames, testing::Each(testing::Pair(testing::_, testing::SizeIs(packetsOfFrame))));
  }
}

// Time can only be longer than it should be: it is measured from before the first packet was sent.
TEST_F(network, packets_are_spaced_as_the_link_or_the_client_asks) {
  for (const gvcam::packet_spacing& spacing :
       {gvcam::packet_spacing{.keepsPacketDelay = true}, {.linkSpeed = 1}}) {
    setup.spacing = spacing;
    start();
    client receiver;
    receiver.connect();
    receiver.write(standard::streamPacketDelay, 5'000'000);
    const auto begin = std::chrono::steady_clock::now();
    receiver.write(features::acquisition, 1);
    for (std::size_t packet = 0; packet < packetsOfFrame; ++packet) {
      EXPECT_EQ(receiver.packet().packetId, packet);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, (packetsOfFrame - 1) * 4912us);
  }
}

}  // namespace
}  // namespace gvcam_test
