#include "platform/gige/stream/frame_assembler.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace gige {

using gige_protocol::byte_view;
using gige_protocol::id_mode;
using gige_protocol::packet_header;

namespace {

// Packets of so many frames before the newest two are late; those of others belong to another sequence.
constexpr std::int64_t lateFrames = 16;

// As far ahead as ids of 16 bits can tell. A longer way is no loss of frames but another sequence.
constexpr std::int64_t farthestJump = 0x7fff;

std::uint64_t previous_block_id(std::uint64_t id, id_mode mode) {
  return id == 1 ? gige_protocol::largest_block_id(mode) : id - 1;
}

const assembly_setup& checked(const assembly_setup& setup) {
  if (setup.largestBatch == 0) {
    throw std::invalid_argument("batches of no datagram");
  }
  return setup;
}

}  // namespace

frame_assembler::frame_assembler(const assembly_setup& setup, frame_owner& owner)
    : setup_(checked(setup)),
      layout_(lay_out(setup)),
      owner_(owner),
      timeout_(setup.resendTimeout),
      frames_{frame_in_progress(setup_, layout_, owner, counters_, timeout_),
              frame_in_progress(setup_, layout_, owner, counters_, timeout_)},
      moves_(setup.largestBatch, layout_.bytesPerPacket) {
  ended_.reserve(setup.largestBatch + frames_.size());
}

void frame_assembler::reset() {
  for (frame_in_progress& frame : frames_) {
    if (frame.is_open() && frame.place() != nullptr) {
      owner_.take_back(frame.place());
    }
    frame.clear();
  }
  if (nextMemory_ != nullptr) {
    owner_.take_back(std::exchange(nextMemory_, nullptr));
  }
  drop_stray();
  moves_.start();
  started_ = false;
}

std::size_t frame_assembler::predict(std::span<std::uint8_t*> places) {
  moves_.start();
  places = places.first(std::min(places.size(), setup_.largestBatch));
  std::size_t count = 0;
  if (newest().is_open()) {
    count = predict_packets(places, 0, newest().place(), newest().next_packet(), newest().packet_count());
  }
  if (count < places.size()) {
    nextMemory_ = lend();  // what was lent ahead before, where there is any
    count = predict_packets(places, count, nextMemory_, 0, layout_.trailer() + 1);
  }
  return count;
}

// Predicts a frame's packets from `packet` on and before `end`, as many as there is room for from `index` on,
// and gives where that room ends. Only full packets go straight into the frame: so each body is in one piece
// whatever comes.
std::size_t frame_assembler::predict_packets(std::span<std::uint8_t*> places, std::size_t index,
                                             std::uint8_t* frame, std::uint32_t packet, std::uint32_t end) {
  std::size_t direct = 0;
  for (; index < places.size() && packet < end; ++index, ++packet) {
    places[index] = nullptr;
    if (frame != nullptr && layout_.is_full(packet)) {
      places[index] = frame + layout_.offset_of(packet);
      ++direct;
    } else if (direct > 0) {
      moves_.predict(index - direct, places[index - direct], direct);
      direct = 0;
    }
  }
  if (direct > 0) {
    moves_.predict(index - direct, places[index - direct], direct);
  }
  return index;
}

void frame_assembler::accept(std::span<const datagram> batch, moment now) {
  for (std::size_t index = 0; index < batch.size(); ++index) {
    take(index, batch[index], now);
  }
  moves_.carry_out();
  moves_.start();
  request_gaps(now);
  hand_out();
}

void frame_assembler::take(std::size_t index, const datagram& packet, moment now) {
  const byte_view start(packet.header, std::min(packet.size, gige_protocol::header_size(setup_.ids)));
  const auto header = gige_protocol::parse_packet_header(start);
  if (!header || header->ids != setup_.ids || header->is_test()) {
    drop_stray();
    ++counters_.packetsForeign;
    return;
  }
  const std::size_t bodyBytes = packet.size - header->size();
  const byte_view body(packet.body, std::min(bodyBytes, largest_body()));
  frame_in_progress* frame = frame_of(*header, body, now);
  if (frame == nullptr) {
    return;
  }
  std::uint8_t* place = frame->take(*header, body, bodyBytes, now);
  if (place != nullptr && place != body.data()) {
    moves_.plan(index, body.data(), place, bodyBytes);
  }
  if (!frame->waits()) {
    close_settled();
  }
}

// The frame that a packet belongs to, begun by it if need be; nullptr for a packet that is of no use.
frame_in_progress* frame_assembler::frame_of(const packet_header& header, byte_view body, moment now) {
  if (header.blockId == newest().id()) {
    drop_stray();
    return &newest();
  }
  const bool previous = header.blockId == older().id();
  if (previous && !older().is_awaited()) {
    drop_stray();
    return &older();
  }
  if (is_error(header.state)) {
    return nullptr;
  }
  if (confirms_stray(header)) {
    follow_stray(now);
    return &newest();
  }
  drop_stray();
  if (previous) {
    older().begin(header.blockId, lend(), now);
    return &older();
  }
  if (begins_next(header)) {
    move_to(header.blockId, now);
    return &newest();
  }
  if (is_late(header.blockId)) {
    ++counters_.packetsDuplicate;
    return nullptr;
  }
  keep_stray(header, body);
  return nullptr;
}

// The first frame is number 1 or starts with its leader: the rest of an acquisition before may still come.
bool frame_assembler::begins_next(const packet_header& header) const {
  if (!started_) {
    return header.blockId == 1 || header.format == gige_protocol::packet_format::leader;
  }
  return header.blockId == next_block_id(newest().id(), setup_.ids);
}

bool frame_assembler::is_late(std::uint64_t id) const {
  const std::int64_t ahead = started_ ? block_distance(newest().id(), id, setup_.ids) : -1;
  return ahead < 0 && ahead >= -lateFrames;
}

bool frame_assembler::confirms_stray(const packet_header& header) const {
  return header.blockId == stray_.header.blockId && header.packetId == stray_.header.packetId + 1;
}

void frame_assembler::keep_stray(const packet_header& header, byte_view body) {
  stray_.header = header;
  stray_.bodyBytes = body.size();
  std::ranges::copy(body.first(std::min(body.size(), stray_.body.size())), stray_.body.begin());
}

void frame_assembler::drop_stray() {
  if (stray_.header.blockId != 0) {
    ++counters_.packetsForeign;
    stray_.header.blockId = 0;
  }
}

// The stream goes on where the stray packet is from. Of that, only a leader was kept.
void frame_assembler::follow_stray(moment now) {
  move_to(stray_.header.blockId, now);
  if (stray_.header.format == gige_protocol::packet_format::leader) {
    const byte_view body(stray_.body.data(), std::min(stray_.bodyBytes, stray_.body.size()));
    newest().take(stray_.header, body, stray_.bodyBytes, now);
    stray_.header.blockId = 0;
  }
  drop_stray();
}

// Makes this frame the newest. Of those before it, only the one right before it may still go on.
void frame_assembler::move_to(std::uint64_t id, moment now) {
  const std::int64_t ahead = started_ ? block_distance(newest().id(), id, setup_.ids) : 0;
  retire(older());
  close_settled();  // what only waited for the older one to end first
  if (ahead == 1) {
    newest_ = 1 - newest_;
  } else {
    retire(newest());
    older().clear();
    if (ahead > 1 && ahead <= farthestJump) {
      counters_.framesMissing += static_cast<std::uint64_t>(ahead) - 2;
      older().await(previous_block_id(id, setup_.ids));
    }
  }
  newest().begin(id, lend(), now);
  started_ = true;
}

// Memory for one more frame.
std::uint8_t* frame_assembler::lend() {
  return nextMemory_ != nullptr ? std::exchange(nextMemory_, nullptr) : owner_.lend();
}

// Ends a frame that may have ended before, or may not have begun.
void frame_assembler::retire(frame_in_progress& frame) {
  if (frame.is_awaited()) {
    ++counters_.framesMissing;
    frame.clear();
  } else if (frame.is_open()) {
    close(frame);
  }
}

void frame_assembler::close(frame_in_progress& frame) {
  ended_.push_back(frame.close());
  switch (ended_.back().outcome) {
    case frame_outcome::whole:
      ++counters_.framesWhole;
      break;
    case frame_outcome::incomplete:
      ++counters_.framesIncomplete;
      break;
    case frame_outcome::refused:
      ++counters_.framesRefused;
      break;
    case frame_outcome::dropped:
      ++counters_.framesDropped;
      break;
  }
}

// Ends the frames that wait for nothing, in the order of their ids.
void frame_assembler::close_settled() {
  if (older().is_open() && older().settled()) {
    close(older());
  }
  if (!older().is_open() && newest().is_open() && newest().settled()) {
    retire(older());
    close(newest());
  }
}

// Once a frame has begun, all that is missing of the one before is missed.
void frame_assembler::request_gaps(moment now) {
  if (older().waits()) {
    older().request_rest(now);
  }
  if (newest().waits()) {
    newest().request_gaps(now);
  }
  close_settled();
}

void frame_assembler::expire(moment now) {
  if (older().waits() && older().expire(now)) {
    close(older());
  }
  if (newest().waits() && newest().expire(now)) {
    retire(older());
    close(newest());
  }
  close_settled();
  hand_out();
}

std::optional<moment> frame_assembler::deadline() {
  std::optional<moment> earliest;
  for (frame_in_progress& frame : frames_) {
    if (frame.waits()) {
      const moment next = frame.deadline();
      earliest = std::min(earliest.value_or(next), next);
    }
  }
  return earliest;
}

std::uint32_t frame_assembler::packets_to_come() const {
  return newest().waits() ? newest().packets_to_come() : 0;
}

void frame_assembler::hand_out() {
  for (const ended_frame& frame : ended_) {
    owner_.end(frame);
  }
  ended_.clear();
}

}  // namespace gige
