// What frame assembly costs for each frame of 1280 x 1024 pixels, Mono8: with bodies that were received in
// their places, with every hundredth packet lost and sent again, so that the rest of its batch lies in the
// wrong places, and with bodies that are copied to their places, as out of a packet ring.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <vector>

#include "platform/gige/stream/frame_assembler.h"
#include "platform/gige_protocol/bytes.h"

namespace {

using gige::datagram;
using gige_protocol::packet_format;
using gige_protocol::standardHeaderSize;

enum class way : std::int64_t { inPlace, inPlaceWithLoss, copied };

gige::assembly_setup setup_for(std::uint32_t packetBytes) {
  return {.payloadBytes = 1280ULL * 1024,
          .width = 1280,
          .height = 1024,
          .pixelFormat = 0x01080001,
          .packetBytes = packetBytes,
          .cameraResends = true,
          .maxPacketResends = 100,
          .resendTimeout = std::chrono::milliseconds(30),
          .frameTimeout = std::chrono::seconds(1)};
}

// Lends one memory after the other, so that none of it is in the processor's cache, and keeps what the camera
// is to send again.
class lender final : public gige::frame_owner {
 public:
  explicit lender(std::uint64_t bytes) { pixels_.fill(std::vector<std::uint8_t>(bytes)); }
  std::uint8_t* lend() override { return pixels_[++lent_ % pixels_.size()].data(); }
  void take_back(std::uint8_t* /*place*/) override {}
  void end(const gige::ended_frame& /*frame*/) override {}
  void request(const gige::packet_range& packets) override { requested.push_back(packets.first); }

  std::vector<std::uint32_t> requested;

 private:
  std::array<std::vector<std::uint8_t>, 32> pixels_;
  std::size_t lent_ = 0;
};

// All packets of one frame, as a camera sends them.
class packets_of_frame {
 public:
  explicit packets_of_frame(const gige::assembly_setup& setup) {
    const gige::frame_layout layout = gige::lay_out(setup);
    const gige_protocol::image_geometry image{
        .pixelFormat = setup.pixelFormat, .width = setup.width, .height = setup.height};
    add(gige_protocol::make_leader({}, {.image = image}).view());
    for (std::uint32_t number = 1; number <= layout.payloadPackets; ++number) {
      std::vector<std::uint8_t> packet(gige_protocol::extendedHeaderSize + layout.bytes_of(number));
      const gige_protocol::packet_header head{.format = packet_format::payload, .packetId = number};
      store_packet_header(head, std::span(packet).first<gige_protocol::extendedHeaderSize>());
      add(std::span(packet).first(standardHeaderSize + layout.bytes_of(number)));
    }
    add(gige_protocol::make_trailer({.packetId = layout.trailer()}, {.height = setup.height}).view());
  }

  std::uint32_t count() const { return static_cast<std::uint32_t>(packets_.size()); }
  void number_frame(std::uint16_t id) {
    for (auto& packet : packets_) {
      gige_protocol::store(packet, sizeof(std::uint16_t), id);
    }
  }
  datagram at(std::uint32_t number) const {
    const auto& packet = packets_[number];
    return {packet.data(), packet.data() + standardHeaderSize, packet.size()};
  }

 private:
  void add(gige_protocol::byte_view packet) { packets_.emplace_back(packet.begin(), packet.end()); }

  std::vector<std::vector<std::uint8_t>> packets_;
};

void frame_of_packets(benchmark::State& state) {
  const auto setup = setup_for(static_cast<std::uint32_t>(state.range(0)));
  const way how{state.range(1)};
  lender owner(setup.payloadBytes);
  gige::frame_assembler assembler(setup, owner);
  packets_of_frame packets(setup);
  std::vector<datagram> batch;
  std::array<std::uint8_t*, 64> places{};
  gige::moment now{};
  std::uint16_t id = 0;
  for (auto _ : state) {
    state.PauseTiming();
    id = static_cast<std::uint16_t>(next_block_id(id, setup.ids));
    packets.number_frame(id);
    now += std::chrono::milliseconds(10);
    state.ResumeTiming();
    for (std::uint32_t next = 0; next < packets.count() || !owner.requested.empty();) {
      const std::size_t room = how == way::copied ? places.size() : assembler.predict(places);
      batch.clear();
      for (; !owner.requested.empty() && batch.size() < room; owner.requested.pop_back()) {
        batch.push_back(packets.at(owner.requested.back()));
      }
      for (; next < packets.count() && batch.size() < room; ++next) {
        if (how != way::inPlaceWithLoss || next % 100 != 50) {
          batch.push_back(packets.at(next));
        }
      }
      for (std::size_t index = 0; how != way::copied && index < batch.size(); ++index) {
        batch[index].body = places[index] != nullptr ? places[index] : batch[index].body;
      }
      assembler.accept(batch, now);
    }
  }
  if (assembler.counters().framesWhole != static_cast<std::uint64_t>(state.iterations())) {
    state.SkipWithError("not all frames are whole");
  }
  state.SetItemsProcessed(state.iterations() * packets.count());
}
BENCHMARK(frame_of_packets)
    ->ArgNames({"packet_bytes", "way"})
    ->ArgsProduct({{9000, 1500},
                   {static_cast<std::int64_t>(way::inPlace), static_cast<std::int64_t>(way::inPlaceWithLoss),
                    static_cast<std::int64_t>(way::copied)}})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
