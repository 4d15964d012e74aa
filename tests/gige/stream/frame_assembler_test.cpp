// What frame assembly is for, corner by corner. assembly_property_test.cpp goes everywhere else.
#include "platform/gige/stream/frame_assembler.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/gige/stream/stream_packets.h"

namespace {
std::atomic<std::size_t> allocations = 0;
}

// In place of the standard library's, for the whole program.
void* operator new(std::size_t size) {
  ++allocations;
  void* const memory = std::malloc(std::max(size, std::size_t{1}));
  return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace gige {
namespace {

using namespace std::chrono_literals;
using gige_protocol::packet_format;
using gige_protocol::payload_type;
using gige_protocol::status;
using testing::ElementsAre;
using testing::HasSubstr;

// Frames of 64 x 32 pixels, Mono8: a leader, 25 full packets, one of 48 bytes, and a trailer.
constexpr std::uint32_t trailerNumber = 27;
sent_stream small_frames() {
  return {.setup = {.payloadBytes = 2048,
                    .width = 64,
                    .height = 32,
                    .pixelFormat = 0x01080001,
                    .packetBytes = 116,
                    .cameraResends = true,
                    .maxPacketResends = 10,
                    .resendTimeout = 30ms,
                    .frameTimeout = 1s}};
}

class frame_assembly : public testing::Test, public frame_owner {
 public:
  std::uint8_t* lend() override { return memoryLeft_ > 0 ? --memoryLeft_, pixels_.data() : nullptr; }
  void take_back(std::uint8_t*) override { ++memoryLeft_; }
  void end(const ended_frame& frame) override {
    ended_[endedCount_++ % ended_.size()] = frame;
    memoryLeft_ += frame.place != nullptr ? 1 : 0;
  }
  void request(const packet_range& packets) override { lastRequest_ = packets; }

 protected:
  void send(const sent_packet& packet, moment when = {}) { send_to(assembler_, packet, when); }
  void send_to(frame_assembler& assembler, const sent_packet& packet, moment when) {
    const auto bytes = bytes_of(packet, lay_out(camera_.setup));
    const std::size_t header = std::min(bytes.size(), header_size(camera_.setup.ids));
    const datagram received{bytes.data(), bytes.data() + header, bytes.size()};
    assembler.accept({&received, 1}, when);
  }
  // Packets `first` to `last` of a frame, each in a batch of its own.
  void send(std::uint64_t frame, std::uint32_t first, std::uint32_t last, moment when = {}) {
    for (std::uint32_t number = first; number <= last; ++number) {
      send(true_packet(frame, number, camera_), when);
    }
  }

  using frame_end = std::pair<std::uint64_t, frame_outcome>;
  std::vector<frame_end> ended() const {
    std::vector<frame_end> all;
    for (std::size_t index = 0; index < endedCount_; ++index) {
      all.emplace_back(ended_[index].id, ended_[index].outcome);
    }
    return all;
  }

  const sent_stream camera_ = small_frames();
  std::size_t memoryLeft_ = 3;
  std::vector<std::uint8_t> pixels_ = std::vector<std::uint8_t>(camera_.setup.payloadBytes);
  std::array<ended_frame, 16> ended_{};
  std::size_t endedCount_ = 0;
  packet_range lastRequest_;
  frame_assembler assembler_{camera_.setup, *this};
};

TEST_F(frame_assembly, LosesOneFrameWithOnePacket) {
  send(1, 0, 4);
  send(1, 6, trailerNumber);
  send(2, 0, 9);
  sent_packet answer = true_packet(1, 5, camera_);
  answer.header.state = status::packet_unavailable;
  send(answer);
  EXPECT_THAT(ended(), ElementsAre(frame_end(1, frame_outcome::incomplete)));
  send(2, 10, trailerNumber);
  EXPECT_THAT(ended(),
              ElementsAre(frame_end(1, frame_outcome::incomplete), frame_end(2, frame_outcome::whole)));
}

// A camera that is held up within a frame is asked for packets that it has not sent yet, and says that it
// does not have them.
TEST_F(frame_assembly, WaitsForPacketsThatAreStillToBeSent) {
  for (const bool resends : {true, false}) {
    assembly_setup setup = camera_.setup;
    setup.cameraResends = resends;
    setup.maxPacketResends = 30;
    frame_assembler assembler(setup, *this);
    for (std::uint32_t number = 0; number <= trailerNumber; ++number) {
      const moment when(number < 10 ? 0ms : 100ms);
      send_to(assembler, true_packet(1, number, camera_), when);
      if (number == 9) {
        assembler.expire(moment(30ms));
        EXPECT_EQ(lastRequest_, (resends ? packet_range{1, 10, trailerNumber} : packet_range{}));
        for (std::uint32_t absent = 10; absent <= trailerNumber; ++absent) {
          sent_packet answer = true_packet(1, absent, camera_);
          answer.header.state = status::packet_unavailable;
          send_to(assembler, answer, moment(31ms));
        }
        assembler.expire(moment(99ms));
      }
    }
    EXPECT_EQ(assembler.counters().framesWhole, 1U);
    lastRequest_ = {};
  }
}

TEST_F(frame_assembly, IsMovedByTwoPacketsInARowButNotByOne) {
  send(1, 0, 9);
  send(9000, 0, 0);
  send(1, 10, trailerNumber);
  send(2, 0, trailerNumber);
  send(9000, 0, trailerNumber);  // after that, the camera has really jumped
  EXPECT_THAT(ended(), ElementsAre(frame_end(1, frame_outcome::whole), frame_end(2, frame_outcome::whole),
                                   frame_end(9000, frame_outcome::whole)));
}

TEST_F(frame_assembly, AsksSoonerOnceItKnowsHowFastTheCameraAnswers) {
  for (std::uint64_t frame = 1; frame < 4; ++frame) {
    const moment start = moment{} + frame * 10ms;
    send(frame, 0, 4, start);
    send(frame, 6, 6, start);
    EXPECT_EQ(assembler_.deadline(), start + (frame == 1 ? 30ms : 1ms));
    send(frame, 5, 5, start + 200us);
    send(frame, 7, trailerNumber, start + 300us);
  }
}

TEST_F(frame_assembly, AllocatesNothing) {
  std::vector<std::vector<std::uint8_t>> packets;
  for (std::uint64_t frame = 1; frame < 8; ++frame) {
    for (std::uint32_t number = 0; number <= trailerNumber; number += frame == 4 ? 3 : 1) {
      packets.push_back(bytes_of(true_packet(frame, number, camera_), lay_out(camera_.setup)));
    }
  }
  std::vector<datagram> batch;
  batch.reserve(packets.size());
  for (const auto& packet : packets) {
    batch.push_back({packet.data(), packet.data() + gige_protocol::standardHeaderSize, packet.size()});
  }
  const std::size_t before = allocations;
  for (std::size_t done = 0; done < batch.size();) {
    std::array<std::uint8_t*, 16> places{};
    const std::size_t count = std::min(assembler_.predict(places), batch.size() - done);
    assembler_.accept(std::span(batch).subspan(done, count), moment{});
    done += count;
  }
  assembler_.expire(moment{} + 5s);
  EXPECT_EQ(allocations, before);
  EXPECT_EQ(assembler_.counters().framesWhole, 6);
}

TEST_F(frame_assembly, NamesWhatItRefuses) {
  struct lie {
    const char* what;
    std::uint32_t number;  // of the packet
    void (*tell)(sent_packet&);
  };
  const std::array lies = {
      lie{"JPEG image", 0, [](sent_packet& of) { of.leader.type = payload_type::jpeg; }},
      lie{"height", 0, [](sent_packet& of) { of.leader.image.height = 31; }},
      lie{"packet number", 5, [](sent_packet& of) { of.header.packetId = 28; }},
      lie{"multi-part payload", 5, [](sent_packet& of) { of.header.format = packet_format::multi_part; }},
      lie{"bytes of payload", 5, [](sent_packet& of) { of.header.format = packet_format::trailer; }},
      lie{"number of a payload packet", 5, [](sent_packet& of) { of.bytes = 40; }},
      lie{"bytes of a payload packet", 26, [](sent_packet& of) { of.bytes = 49; }},
      lie{"lines", trailerNumber, [](sent_packet& of) { of.trailer.height = 31; }}};
  for (const lie& told : lies) {
    const std::uint64_t frame = endedCount_ + 1;
    for (std::uint32_t number = 0; number <= trailerNumber; ++number) {
      sent_packet packet = true_packet(frame, number, camera_);
      if (number == told.number) {
        told.tell(packet);
      }
      send(packet);
    }
    ASSERT_EQ(endedCount_, frame);
    EXPECT_STREQ(ended_[frame - 1].refusal.what, told.what);
  }
}

TEST_F(frame_assembly, RefusesASetupThatCannotBeAndNamesIt) {
  struct wrong_setup {
    const char* text;
    void (*spoil)(assembly_setup&);
  };
  const std::array setups = {
      wrong_setup{"a payload of 2047 bytes for an image of 2048",
                  [](assembly_setup& of) { --of.payloadBytes; }},
      wrong_setup{"frames of 64 x 0 pixels", [](assembly_setup& of) { of.height = 0; }},
      wrong_setup{"pixel format", [](assembly_setup& of) { of.pixelFormat = 0; }},
      wrong_setup{"packets of 71 bytes", [](assembly_setup& of) { of.packetBytes = 71; }},
      wrong_setup{"16777214 can be numbered", [](assembly_setup& of) { of.payloadBytes = 1U << 31U; }},
      wrong_setup{"batches of no datagram", [](assembly_setup& of) { of.largestBatch = 0; }}};
  for (const wrong_setup& wrong : setups) {
    assembly_setup setup = camera_.setup;
    wrong.spoil(setup);
    EXPECT_THAT([&] { frame_assembler(setup, *this); },
                testing::ThrowsMessage<std::invalid_argument>(HasSubstr(wrong.text)));
  }
}

TEST(resend_timeout, FollowsTheAnswersAndBacksOffWithoutThem) {
  resend_timeout timeout(30ms);
  EXPECT_EQ(timeout.value(), 30ms);
  for (int answers = 0; answers < 100; ++answers) {
    timeout.answered(4ms);
  }
  EXPECT_LT(timeout.value(), 5ms);
  EXPECT_GE(timeout.value(), 4ms);
  const auto learnt = timeout.value();
  timeout.unanswered();
  EXPECT_EQ(timeout.value(), 2 * learnt);
  for (int silent = 0; silent < 100; ++silent) {
    timeout.unanswered();
  }
  EXPECT_EQ(timeout.value(), 30ms);
}

}  // namespace
}  // namespace gige
