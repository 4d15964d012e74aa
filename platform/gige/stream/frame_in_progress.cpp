#include "platform/gige/stream/frame_in_progress.h"

#include <algorithm>
#include <array>

namespace gige {

using gige_protocol::byte_view;
using gige_protocol::packet_format;
using gige_protocol::packet_header;
using gige_protocol::payload_type;

namespace {

// What a frame may be: an image, alone or the first of its chunks.
bool is_image(payload_type type) {
  return has_geometry(type) || type == payload_type::chunk_data;
}

}  // namespace

frame_in_progress::frame_in_progress(const assembly_setup& setup, const frame_layout& layout,
                                     frame_owner& owner, assembly_counters& counters, resend_timeout& timeout)
    : setup_(setup),
      layout_(layout),
      counters_(counters),
      timeout_(timeout),
      record_(layout.trailer() + 1),
      schedule_(layout.trailer() + 1, setup.cameraResends ? setup.maxPacketResends : 0, record_, timeout,
                owner, counters.packetsRequested) {}

void frame_in_progress::clear() {
  stage_ = stage::closed;
  id_ = 0;
  place_ = nullptr;
  refusal_ = {};
}

void frame_in_progress::await(std::uint64_t id) {
  clear();
  stage_ = stage::awaited;
  id_ = id;
}

void frame_in_progress::begin(std::uint64_t id, std::uint8_t* place, moment now) {
  clear();
  stage_ = stage::open;
  id_ = id;
  place_ = place;
  record_.clear();
  schedule_.begin(id, place != nullptr);
  highest_ = 0;
  sent_ = 0;
  examined_ = 0;
  trailer_ = layout_.trailer();
  trailerKnown_ = false;
  payloadBytes_ = 0;
  leaderSeen_.reset();
  trailerSeen_.reset();
  begun_ = now;
  lastPacket_ = now;
  quietSince_ = now;
}

std::uint8_t* frame_in_progress::take(const packet_header& header, byte_view body, std::size_t bodyBytes,
                                      moment now) {
  if (is_error(header.state)) {
    take_absence(header);
    return nullptr;
  }
  if (!count_arrival(header.packetId, now) || refusal_.what != nullptr) {
    return nullptr;
  }
  switch (header.format) {
    case packet_format::payload:
      return take_payload(header.packetId, bodyBytes);
    case packet_format::leader:
      take_leader(header.packetId, body);
      return nullptr;
    case packet_format::trailer:
      take_trailer(header.packetId, body);
      return nullptr;
    default:
      refuse(name_of(header.format), static_cast<std::uint64_t>(header.format),
             static_cast<std::uint64_t>(packet_format::payload));
      return nullptr;
  }
}

// The camera answers that it does not have a packet. That is final only for packets that were sent.
void frame_in_progress::take_absence(const packet_header& header) {
  if (!is_open() || header.packetId > trailer_ || is_late(header.state)) {
    return;
  }
  const bool previousToo = header.state == gige_protocol::status::packet_and_previous_removed;
  const std::uint32_t first = previousToo ? 0 : header.packetId;
  const std::uint32_t end = std::min(header.packetId + 1, sent_);
  if (first < end) {
    record_.write_off(first, end - 1);
  }
}

// Counts a packet. True if it is the first of its number and comes in time.
bool frame_in_progress::count_arrival(std::uint32_t packet, moment now) {
  const bool inTime = is_open() || refusal_.what != nullptr;
  const bool numbered = packet <= layout_.trailer();
  if (!inTime || (numbered && !record_.receive(packet))) {
    ++counters_.packetsDuplicate;
    return false;
  }
  ++counters_.packetsReceived;
  if (!numbered) {
    refuse("packet number", packet, layout_.trailer());
    return false;
  }
  if (record_.was_requested(packet)) {
    ++counters_.packetsReceivedAgain;
    schedule_.arrived(packet, now);
  } else {
    sent_ = std::max(sent_, packet + 1);
  }
  highest_ = std::max(highest_, packet);
  lastPacket_ = now;
  quietSince_ = now;
  return true;
}

std::uint8_t* frame_in_progress::take_payload(std::uint32_t packet, std::size_t bytes) {
  const std::uint32_t end = trailerKnown_ ? trailer_ : layout_.trailer();
  if (packet == 0 || packet >= end) {
    refuse("number of a payload packet", packet, end - 1);
    return nullptr;
  }
  if (bytes == 0 || bytes > layout_.bytes_of(packet)) {
    refuse("bytes of a payload packet", bytes, layout_.bytes_of(packet));
    return nullptr;
  }
  if (bytes < layout_.bytesPerPacket) {  // as only the last one can be
    end_with_trailer(packet + 1);
  }
  payloadBytes_ += bytes;
  return place_ != nullptr ? place_ + layout_.offset_of(packet) : nullptr;
}

void frame_in_progress::take_leader(std::uint32_t packet, byte_view body) {
  const auto leader = gige_protocol::parse_leader(body);
  if (packet != 0) {
    refuse("number of a leader", packet, 0);
    return;
  }
  if (!leader) {
    refuse(leader.reason(), body.size(), gige_protocol::largestLeaderSize);
    return;
  }
  leaderSeen_ = *leader;
  if (!is_image(leader->type)) {
    refuse(name_of(leader->type), static_cast<std::uint64_t>(leader->type),
           static_cast<std::uint64_t>(payload_type::image));
  } else if (has_geometry(leader->type)) {
    compare_geometry(leader->image);
  }
}

void frame_in_progress::compare_geometry(const gige_protocol::image_geometry& image) {
  const std::array facts = {frame_refusal{"pixel format", image.pixelFormat, setup_.pixelFormat},
                            frame_refusal{"width", image.width, setup_.width},
                            frame_refusal{"height", image.height, setup_.height},
                            frame_refusal{"bytes of padding a line", image.paddingX, 0}};
  for (const frame_refusal& fact : facts) {
    if (fact.found != fact.expected) {
      refuse(fact.what, fact.found, fact.expected);
    }
  }
}

void frame_in_progress::take_trailer(std::uint32_t packet, byte_view body) {
  const auto trailer = gige_protocol::parse_trailer(body);
  if (!trailer) {
    refuse(trailer.reason(), body.size(), gige_protocol::largestTrailerSize);
    return;
  }
  trailerSeen_ = *trailer;
  end_with_trailer(packet);
}

// The frame says, by its trailer or by a payload packet that is not full, which packet its trailer is.
void frame_in_progress::end_with_trailer(std::uint32_t packet) {
  if (highest_ > packet || (trailerKnown_ && packet != trailer_)) {
    refuse("number of the trailer", packet, trailerKnown_ ? trailer_ : highest_);
    return;
  }
  trailerKnown_ = true;
  trailer_ = packet;
  record_.end_at(packet + 1);
}

void frame_in_progress::request_gaps(moment now) {
  if (examined_ < sent_) {
    schedule_.request_missing(examined_, sent_, now);
    examined_ = sent_;
  }
}

void frame_in_progress::request_rest(moment now) {
  sent_ = std::max(sent_, trailer_ + 1);
  request_gaps(now);
}

bool frame_in_progress::expire(moment now) {
  if (sent_ <= trailer_ && now - quietSince_ >= timeout_.longest()) {
    schedule_.probe(sent_, trailer_ + 1);
    quietSince_ = now;
  }
  schedule_.expire(now);
  return now - begun_ >= setup_.frameTimeout;
}

moment frame_in_progress::deadline() {
  moment earliest = begun_ + setup_.frameTimeout;
  if (sent_ <= trailer_) {
    earliest = std::min(earliest, quietSince_ + timeout_.longest());
  }
  return std::min(earliest, schedule_.deadline().value_or(earliest));
}

// All packets have come: do they make a frame?
void frame_in_progress::judge_whole() {
  const std::uint64_t valid = valid_bytes();
  if (trailerSeen_->type != leaderSeen_->type) {
    refuse("payload type of the trailer", static_cast<std::uint64_t>(trailerSeen_->type),
           static_cast<std::uint64_t>(leaderSeen_->type));
  } else if (has_geometry(trailerSeen_->type) && trailerSeen_->height != setup_.height &&
             trailerSeen_->height != 0) {  // some cameras do not fill it in
    refuse("lines", trailerSeen_->height, setup_.height);
  } else if (valid < layout_.imageBytes) {
    refuse("bytes of payload", valid, layout_.imageBytes);
  } else if (valid > payloadBytes_ || trailerSeen_->chunkSize > payloadBytes_) {
    refuse("bytes of chunks", std::max<std::uint64_t>(valid, trailerSeen_->chunkSize), payloadBytes_);
  }
}

// Of the payload; a frame of chunks may be padded.
std::uint64_t frame_in_progress::valid_bytes() const {
  return trailerSeen_->type == payload_type::chunk_data ? trailerSeen_->payloadSize : payloadBytes_;
}

ended_frame frame_in_progress::close() {
  const bool complete = packets_to_come() == 0 && refusal_.what == nullptr;
  if (complete) {
    judge_whole();
  }
  ended_frame ended{.outcome = outcome(complete),
                    .id = id_,
                    .place = place_,
                    .lastPacket = lastPacket_,
                    .refusal = refusal_};
  ended.timestamp = leaderSeen_ ? leaderSeen_->timestamp : 0;
  ended.bytes = ended.outcome == frame_outcome::whole ? valid_bytes() : 0;
  counters_.packetsLost += packets_to_come();
  stage_ = stage::closed;
  return ended;
}

frame_outcome frame_in_progress::outcome(bool complete) const {
  if (refusal_.what != nullptr) {
    return frame_outcome::refused;
  }
  if (place_ == nullptr) {
    return frame_outcome::dropped;
  }
  return complete ? frame_outcome::whole : frame_outcome::incomplete;
}

std::uint32_t frame_in_progress::packets_to_come() const {
  return refusal_.what == nullptr ? trailer_ + 1 - record_.received() : 0;
}

void frame_in_progress::refuse(const char* what, std::uint64_t found, std::uint64_t expected) {
  if (refusal_.what == nullptr) {
    refusal_ = {what, found, expected};
  }
}

}  // namespace gige
