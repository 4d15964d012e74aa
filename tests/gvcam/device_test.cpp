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

constexpr std::uint32_t near = 0x7f000001;
constexpr std::uint32_t further = 0x7f000002;
constexpr std::uint32_t broadcast = 0xffff'ffff;
constexpr std::uint32_t side = 64;
constexpr gige_protocol::mac_address mac = {0x02, 0, 0x5e, 0x10, 0, 0x01};

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
  explicit client(std::uint32_t camera = near) : camera_(camera) {
    const int room = 16 << 20;  // for as long as the machine may hold up the test
    EXPECT_EQ(setsockopt(stream_.descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room), 0);
  }
  bytes ask(const message& command) const {
    control_.send({camera_, gige_protocol::controlPort}, command.view());
    return receive(control_, 10s);
  }
  std::uint32_t read(std::uint32_t address) { return words_of(ask(read_word(++id_, address))).at(0); }
  void write(std::uint32_t address, std::uint32_t value) {
    ASSERT_EQ(status_of(ask(write_word(++id_, address, value))), status::success) << std::hex << address;
  }
  void connect() {
    write(standard::controlChannelPrivilege, controlAccess);
    write(standard::heartbeatTimeout, 60'000);
    write(standard::streamDestination, near);
    write(standard::streamPort, stream_.port());
  }
  bytes packet(std::chrono::milliseconds patience = 10s) const { return receive(stream_, patience); }

 private:
  std::uint32_t camera_;
  gvcam::udp_socket control_{gvcam::endpoint{near, 0}};
  gvcam::udp_socket stream_{gvcam::endpoint{near, 0}};
  std::uint16_t id_ = 0;
};

// The packets of a frame by id; 10 of them make it whole: 4096 bytes are 8 packets of at most 540 bytes.
using received_frames = std::map<std::uint64_t, std::set<std::uint32_t>>;
constexpr std::size_t packetsOfFrame = 10;

gige_protocol::packet_head head_of(const bytes& datagram) {
  const auto head = gige_protocol::parse_packet_head(datagram);
  return head ? *head : gige_protocol::packet_head{};
}

class network : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(unshare(CLONE_NEWNET), 0) << "a network of its own is refused";
    ASSERT_EQ(std::system("ip link set lo mtu 9000 up && ip addr add 127.0.0.2/8 dev lo && "
                          "ip route add 255.255.255.255 dev lo"),
              0);
  }
  network() {
    setup.width = setup.height = side;
    setup.packetSize = 576;
    setup.framesPerSecond = 100;
    setup.description = "<xml/>";
  }
  void start() {
    camera.reset();  // its address is needed
    camera =
        std::make_unique<device>(gvcam::camera_identity{"CAM", near, "", mac}, setup, scene, gvcam::faults());
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
    for (auto head = head_of(receiver.packet()); head.blockId != 0;
         head = head_of(receiver.packet(isStopped ? 30ms : 10s))) {
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
      EXPECT_FALSE(receiver.packet().empty());
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, (packetsOfFrame - 1) * 4912us);
  }
}

TEST_F(network, a_camera_is_moved_to_another_address_of_the_machine_and_to_no_other) {
  start();
  client here;
  const client searching(broadcast);
  const auto move = [&](std::uint16_t id, std::uint32_t ip) {
    return status_of(searching.ask(gige_protocol::make_force_ip(id, {mac, ip, 0xff000000, 0}, false)));
  };
  EXPECT_EQ(move(2, 0x0a0a0a0a), status::invalid_parameter);
  EXPECT_EQ(here.read(standard::currentIp), near);
  EXPECT_EQ(move(3, further), status::success);
  client there(further);
  EXPECT_EQ(there.read(standard::currentIp), further);
  there.connect();
  there.write(features::acquisition, 1);
  EXPECT_FALSE(there.packet().empty());
  there.write(standard::controlChannelPrivilege, 0);
  EXPECT_EQ(move(4, 0), status::success) << "its own address";
  EXPECT_EQ(here.read(standard::currentIp), near);
}

}  // namespace
}  // namespace gvcam_test
