// Emulated cameras and a client of theirs, over sockets in a network of the test's own.
#include "platform/gvcam/device.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <cstdlib>
#include <map>
#include <random>

#include "platform/picture/picture.h"
#include "tests/gvcam/commands.h"

namespace gvcam_test {
namespace {

using namespace std::chrono_literals;
using gige_protocol::byte_view;
using gvcam::device;
using gvcam::endpoint;
namespace features = gvcam::features;

constexpr std::uint32_t near = 0x7f000001;
constexpr std::uint32_t further = 0x7f000002;
constexpr std::uint32_t everybody = 0xffff'ffff;
constexpr std::uint32_t side = 64;
constexpr auto patience = 10s;  // only what fails lasts that long

bool enter_own_network() {
  return unshare(CLONE_NEWNET) == 0 && std::system(
                                           "ip link set lo mtu 9000 up && ip addr add 127.0.0.2/8 dev lo && "
                                           "ip route add 255.255.255.255 dev lo") == 0;
}

std::vector<std::uint8_t> receive(const gvcam::udp_socket& from, std::chrono::milliseconds wait = patience) {
  pollfd ready{from.descriptor(), POLLIN, 0};
  std::vector<std::uint8_t> datagram(65536);
  const bool came = poll(&ready, 1, static_cast<int>(wait.count())) == 1;
  const auto arrival = came ? from.receive(datagram) : std::nullopt;
  datagram.resize(arrival ? arrival->size : 0);
  return datagram;
}

// A program that has control of a camera and receives its stream.
class client {
 public:
  explicit client(std::uint32_t camera = near) : camera_{camera, gige_protocol::controlPort} {
    const int room = 16 << 20;  // for as long as the machine may hold up the test
    EXPECT_EQ(setsockopt(stream_.descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room), 0);
  }

  std::vector<std::uint8_t> ask(const message& command) const {
    control_.send(camera_, command.view());
    return receive(control_);
  }
  std::uint32_t read(std::uint32_t address) { return word_of(ask(read_word(++id_, address))); }
  void write(std::uint32_t address, std::uint32_t value) {
    ASSERT_EQ(status_of(ask(write_word(++id_, address, value))), status::success) << std::hex << address;
  }
  void connect() {
    write(standard::controlChannelPrivilege, controlAccess);
    write(standard::heartbeatTimeout, 60'000);
    write(standard::streamDestination, near);
    write(standard::streamPort, stream_.port());
  }
  // One frame for each software trigger.
  void await_triggers() {
    write(features::triggerMode, 1);
    write(features::acquisition, 1);
  }
  void ask_again(std::uint64_t frame, std::uint32_t first, std::uint32_t last) {
    const gige_protocol::resend_request wanted{.blockId = frame, .firstPacket = first, .lastPacket = last};
    control_.send(camera_, gige_protocol::make_packet_resend(++id_, wanted).view());
  }
  std::vector<std::uint8_t> packet(std::chrono::milliseconds wait = patience) const {
    return receive(stream_, wait);
  }
  const gvcam::udp_socket& control() const { return control_; }

 private:
  endpoint camera_;
  gvcam::udp_socket control_{endpoint{near, 0}};
  gvcam::udp_socket stream_{endpoint{near, 0}};
  std::uint16_t id_ = 0;
};

class network : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(enter_own_network()) << "a network of its own is refused"; }
  network() {
    setup.width = setup.height = side;
    setup.hasNoise = false;
    setup.packetSize = 576;
    setup.framesPerSecond = 100;
    setup.description = "<xml/>";
  }
  std::unique_ptr<device> camera(const gvcam::faults& faults = {}, std::uint32_t ip = near) const {
    return std::make_unique<device>(gvcam::camera_identity{ip == near ? "NEAR" : "FURTHER", ip, ""}, setup,
                                    scene, faults);
  }
  // The pixels of a frame at power-up settings.
  std::vector<std::uint8_t> drawn(std::uint64_t number) const {
    picture::picture_settings settings;
    settings.noise = false;
    settings.timeUs = number * 10'000;
    settings.width = settings.height = side;
    std::vector<std::uint8_t> pixels(side * side);
    picture::draw(scene, settings, pixels.data());
    return pixels;
  }

  gvcam::camera_setup setup;
  picture::scene scene{side, side};
};

// A frame that is put together from packets in any order.
struct received_frame {
  static constexpr std::uint32_t lastPacket =
      9;  // the trailer: 4096 bytes are 8 packets of 540 bytes at most

  std::map<std::uint32_t, std::vector<std::uint8_t>> packets;

  std::vector<std::uint32_t> missing() const {
    std::vector<std::uint32_t> ids;
    for (std::uint32_t id = 0; id <= lastPacket; ++id) {
      if (!packets.contains(id)) {
        ids.push_back(id);
      }
    }
    return ids;
  }
  std::vector<std::uint8_t> pixels() const {
    std::vector<std::uint8_t> all;
    for (std::uint32_t id = 1; id < lastPacket; ++id) {
      all.insert(all.end(), packets.at(id).begin(), packets.at(id).end());
    }
    return all;
  }
  // Adds what a datagram holds; tells its head.
  static gige_protocol::packet_head add(std::map<std::uint64_t, received_frame>& frames, byte_view datagram) {
    const auto head = gige_protocol::parse_packet_head(datagram);
    EXPECT_TRUE(head);
    if (head && !is_error(head->state)) {
      const byte_view body = datagram.subspan(head->size());
      frames[head->blockId].packets[head->packetId].assign(body.begin(), body.end());
    }
    return head ? *head : gige_protocol::packet_head{};
  }
};

TEST_F(network, all_cameras_of_a_process_answer_a_broadcast_and_each_its_own_address) {
  const auto one = camera();
  const auto two = camera({}, further);
  for (const std::uint32_t asked : {everybody, 0x7fff'ffffU, near, further}) {
    const client asking(asked);
    std::vector<std::string> found;
    asking.control().send({asked, gige_protocol::controlPort},
                          gige_protocol::make_discovery(5, false).view());
    const bool isBroadcast = asked != near && asked != further;
    while (found.size() < (isBroadcast ? 2 : 1)) {
      const auto answer = receive(asking.control());
      const auto head = gige_protocol::parse_acknowledge(answer);
      ASSERT_TRUE(head) << std::hex << asked;
      found.emplace_back(gige_protocol::parse_discovery(head->payload)->serial.view());
    }
    std::ranges::sort(found);
    EXPECT_EQ(found, isBroadcast ? (std::vector<std::string>{"FURTHER", "NEAR"})
                                 : std::vector<std::string>{asked == near ? "NEAR" : "FURTHER"});
  }
}

TEST_F(network, lost_packets_are_sent_again_until_the_frame_is_whole) {
  gvcam::faults faults;
  faults.link = {.loss = 0.3, .reorder = 0.2, .duplicate = 0.2};
  const auto sending = camera(faults);
  client receiver;
  receiver.connect();
  receiver.await_triggers();
  std::map<std::uint64_t, received_frame> frames;
  for (std::uint64_t id = 1; id <= 20; ++id) {
    receiver.write(features::triggerSoftware, 1);
    while (!frames[id].missing().empty()) {
      const auto datagram = receiver.packet(20ms);
      if (datagram.empty()) {
        receiver.ask_again(id, frames[id].missing().front(), frames[id].missing().back());
      } else {
        received_frame::add(frames, datagram);
      }
    }
    ASSERT_EQ(frames[id].pixels(), drawn(id)) << "frame " << id;
    EXPECT_EQ(frames.size(), id) << "more than one for a trigger";
  }
}

TEST_F(network, what_cannot_be_sent_again_is_told_or_not_answered) {
  gvcam::faults faults;
  faults.link.refuse = 1;
  const auto sending = camera(faults);
  client receiver;
  receiver.connect();
  receiver.await_triggers();
  receiver.write(features::triggerSoftware, 1);
  std::map<std::uint64_t, received_frame> frames;
  while (!frames[1].missing().empty()) {
    received_frame::add(frames, receiver.packet());
  }
  receiver.ask_again(1, 3, 4);
  receiver.ask_again(60'000, 1, 1);
  for (const auto& [block, packet] : {std::pair{1U, 3U}, {1U, 4U}, {60'000U, 1U}}) {
    const auto head = received_frame::add(frames, receiver.packet());
    EXPECT_TRUE(head.blockId == block && head.packetId == packet && head.state == status::packet_unavailable);
  }
  client stranger;  // of the same machine, so that it may ask, but nothing comes to it
  stranger.ask_again(1, 3, 3);
  EXPECT_TRUE(stranger.packet(50ms).empty());
  received_frame::add(frames, receiver.packet());
  faults.link = {.ignoresResends = true};
  sending->set_faults(faults);
  receiver.ask_again(1, 3, 4);
  EXPECT_TRUE(receiver.packet(50ms).empty());
}

TEST_F(network, an_acquisition_begins_with_frame_1_and_ends_with_a_whole_one) {
  const auto sending = camera();
  client receiver;
  receiver.connect();
  for (int run = 0; run < 3; ++run) {
    std::map<std::uint64_t, received_frame> frames;
    receiver.write(features::acquisition, 1);
    while (frames.size() < 4) {
      received_frame::add(frames, receiver.packet());
    }
    receiver.write(features::acquisition, 0);
    for (auto datagram = receiver.packet(0ms); !datagram.empty(); datagram = receiver.packet(0ms)) {
      received_frame::add(frames, datagram);
    }
    EXPECT_EQ(frames.begin()->first, 1U);
    for (const auto& [id, each] : frames) {
      EXPECT_TRUE(each.missing().empty()) << id;
    }
    EXPECT_TRUE(receiver.packet(30ms).empty());
  }
}

TEST_F(network, a_test_packet_has_the_size_that_is_asked_for_unless_the_path_is_too_narrow) {
  const auto sending = camera();
  client receiver;
  receiver.connect();
  constexpr std::uint32_t fire = gige_protocol::packet_size::fireTestPacket;
  constexpr std::uint32_t whole = gige_protocol::packet_size::doNotFragment;
  for (const std::uint32_t size : {576U, 1500U, 9000U}) {
    receiver.write(standard::streamPacketSize, fire | whole | size);
    const auto datagram = receiver.packet();
    EXPECT_EQ(datagram.size(), size - 28);
    EXPECT_TRUE(gige_protocol::parse_packet_head(datagram)->is_test());
  }
  receiver.write(standard::streamPacketSize, fire | whole | 9004U);
  EXPECT_TRUE(receiver.packet(50ms).empty());
  receiver.write(standard::streamPacketSize, fire | 9004U);
  EXPECT_EQ(receiver.packet().size(), 9004 - 28U) << "in fragments";
}

TEST_F(network, an_honest_delay_stands_between_packets) {
  setup.hasHonestDelay = true;
  const auto sending = camera();
  client receiver;
  receiver.connect();
  receiver.write(standard::streamPacketDelay, 5'000'000);
  receiver.write(features::acquisition, 1);
  receiver.packet();
  const auto first = std::chrono::steady_clock::now();
  for (std::uint32_t packet = 1; packet <= received_frame::lastPacket; ++packet) {
    receiver.packet();
  }
  // The first one may have waited for us.
  EXPECT_GE(std::chrono::steady_clock::now() - first, 5ms * (received_frame::lastPacket - 1));
}

TEST_F(network, a_camera_is_moved_to_another_address_of_the_machine_and_to_no_other) {
  const auto moving = camera();
  client here;
  const auto found = here.ask(gige_protocol::make_discovery(1, false));
  const auto record = gige_protocol::parse_discovery(gige_protocol::parse_acknowledge(found)->payload);
  const auto move = [&](std::uint16_t id, std::uint32_t ip) {
    const gige_protocol::forced_ip wanted{record->mac, ip, 0xff000000, 0};
    here.control().send({everybody, gige_protocol::controlPort},
                        gige_protocol::make_force_ip(id, wanted, false).view());
    return status_of(receive(here.control()));
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

TEST_F(network, junk_neither_ends_a_camera_nor_gives_a_second_client_control) {
  const auto pestered = camera();
  client first;
  first.connect();
  client second;
  std::mt19937 random(1);
  for (std::uint16_t count = 1; count <= 3000; ++count) {
    const message grab = write_word(count, standard::controlChannelPrivilege, controlAccess);
    std::vector<std::uint8_t> junk(grab.view().begin(), grab.view().end());
    junk[random() % junk.size()] = static_cast<std::uint8_t>(random());
    junk.resize(random() % 4 == 0 ? random() % 1500 : junk.size());
    second.control().send({near, gige_protocol::controlPort}, junk);
    if (count % 50 == 0) {  // no more at once than a socket holds
      ASSERT_EQ(first.read(standard::primaryApplicationPort), first.control().port());
    }
  }
  first.write(features::width, 32);
}

}  // namespace
}  // namespace gvcam_test
