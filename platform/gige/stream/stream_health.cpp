#include "platform/gige/stream/stream_health.h"

#include <array>

namespace gige {
namespace {

using health_record = camera_extension_health_record;

struct counter_row {
  std::uint64_t assembly_counters::*from;  // null: counted elsewhere
  std::uint64_t health_record::*to;
};

constexpr std::array<counter_row, 12> rows{{
    {&assembly_counters::framesWhole, &health_record::frames_whole},
    {&assembly_counters::framesIncomplete, &health_record::frames_incomplete},
    {&assembly_counters::framesRefused, &health_record::frames_refused},
    {&assembly_counters::framesDropped, &health_record::frames_dropped},
    {&assembly_counters::framesMissing, &health_record::frames_missing},
    {&assembly_counters::packetsReceived, &health_record::packets_received},
    {&assembly_counters::packetsLost, &health_record::packets_lost},
    {&assembly_counters::packetsRequested, &health_record::packets_requested},
    {&assembly_counters::packetsReceivedAgain, &health_record::packets_received_again},
    {&assembly_counters::packetsDuplicate, &health_record::packets_duplicate},
    {&assembly_counters::packetsForeign, &health_record::packets_foreign},
    {nullptr, &health_record::kernel_drops},
}};
constexpr std::size_t arrivedRows = 4;  // whole, incomplete, refused, dropped
constexpr std::size_t foreignRow = 10;
constexpr std::size_t dropsRow = 11;

}  // namespace

void stream_health::grant(camera_extension_transport transport, std::uint32_t packetBytes,
                          std::uint32_t bufferBytes, std::uint32_t frames) {
  granted_.write({static_cast<std::uint64_t>(transport), packetBytes, bufferBytes, frames});
}

void stream_health::carry_over() {
  before_ = counters_.read();
}

void stream_health::count(const assembly_counters& assembled, std::uint64_t foreign,
                          std::uint64_t kernelDrops) {
  auto figures = before_;
  for (std::size_t at = 0; at < dropsRow; ++at) {
    figures[at] += assembled.*rows[at].from;
  }
  figures[foreignRow] += foreign;
  figures[dropsRow] += kernelDrops;
  counters_.write(figures);
}

void stream_health::read(camera_extension_health_record& record) const {
  const auto counters = counters_.read();
  for (std::size_t at = 0; at < rows.size(); ++at) {
    record.*rows[at].to = counters[at];
  }
  const auto [id, timeNs] = frame_.read();
  record.frame_id = id;
  record.frame_time_ns = timeNs;
  const auto [transport, packetBytes, bufferBytes, frames] = granted_.read();
  record.transport = static_cast<std::uint32_t>(transport);
  record.packet_size = static_cast<std::uint32_t>(packetBytes);
  record.socket_buffer = static_cast<std::uint32_t>(bufferBytes);
  record.buffers = static_cast<std::uint32_t>(frames);
  record.reserved = 0;
}

std::uint64_t stream_health::arrivals() const {
  const auto counters = counters_.read();
  std::uint64_t frames = 0;
  for (std::size_t at = 0; at < arrivedRows; ++at) {
    frames += counters[at];
  }
  return frames;
}

}  // namespace gige
