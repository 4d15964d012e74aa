// Frame assembly as plainly as it can be told: one packet at a time, sets of packets, no places and no bits.
#ifndef TESTS_GIGE_STREAM_ASSEMBLY_MODEL_H
#define TESTS_GIGE_STREAM_ASSEMBLY_MODEL_H

#include <algorithm>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "platform/gige/stream/assembly_counters.h"
#include "platform/gige/stream/frame_layout.h"
#include "platform/gige/stream/frame_owner.h"
#include "platform/gige/stream/resend_timeout.h"
#include "platform/gige_protocol/gvsp.h"
#include "tests/gige/stream/stream_packets.h"

namespace gige {

// What can be told of a frame's end.
struct model_end {
  frame_outcome outcome;
  std::uint64_t id;
  std::uint64_t timestamp;
  std::uint64_t bytes;
  friend auto operator<=>(const model_end&, const model_end&) = default;
};

// Of streams whose resend time-out is resend_timeout::shortest, the one that does not change.
class assembly_model {
 public:
  // `lends` tells whether there is memory for the frame that begins.
  assembly_model(const assembly_setup& setup, std::function<bool()> lends)
      : setup_(setup), layout_(lay_out(setup)), lends_(std::move(lends)) {}

  void accept(const std::vector<sent_packet>& batch, moment now) {
    for (const sent_packet& packet : batch) {
      take(packet, now);
      close_settled();
    }
    for (frame& of : window_) {
      if (of.waiting()) {
        of.sent = &of == &window_.back() ? of.sent : std::max(of.sent, of.trailer + 1);
        miss(of, now);
      }
    }
    close_settled();
  }

  void expire(moment now) {
    if (window_.size() > 1 && window_.front().waiting() && expire(window_.front(), now)) {
      close(window_.front());
    }
    if (!window_.empty() && window_.back().waiting() && expire(window_.back(), now)) {
      close_newest();
    }
    close_settled();
  }

  std::optional<moment> deadline() const {
    std::set<moment> all;
    for (const frame& of : window_) {
      if (of.waiting()) {
        all.insert(of.since + setup_.frameTimeout);
        if (of.sent <= of.trailer) {
          all.insert(of.quiet + resend_timeout::shortest);
        }
        for (const range& wait : of.waits) {
          for (std::uint32_t packet = wait.first; packet < wait.end; ++packet) {
            if (of.lacks(packet)) {
              all.insert(wait.since + resend_timeout::shortest);
            }
          }
        }
      }
    }
    return all.empty() ? std::nullopt : std::optional(*all.begin());
  }

  void reset() {
    window_.clear();
    drop_stray();
  }

  // All there was so far.
  std::vector<model_end> ended;
  std::vector<packet_range> requests;
  assembly_counters counters;

 private:
  struct range {
    std::uint32_t first;
    std::uint32_t end;
    moment since;
  };
  enum class request { first, repeated, probe };
  struct frame {
    std::uint64_t id = 0;
    bool begun = false;
    bool closed = false;
    bool refused = false;
    bool lent = false;
    std::set<std::uint32_t> received{};
    std::set<std::uint32_t> requested{};
    std::set<std::uint32_t> writtenOff{};
    std::uint32_t trailer = 0;
    bool trailerKnown = false;
    std::uint32_t sent = 0;
    std::uint32_t examined = 0;
    std::uint32_t budget = 0;
    std::uint64_t bytes = 0;
    gige_protocol::leader leader{};
    gige_protocol::trailer end{};
    std::vector<range> waits{};
    moment since{};
    moment quiet{};

    bool lacks(std::uint32_t packet) const {
      return !received.contains(packet) && !writtenOff.contains(packet) && packet <= trailer;
    }
    bool complete() const { return received.size() == trailer + 1U; }
    bool settled() const { return refused || received.size() + writtenOff.size() == trailer + 1U; }
    bool waiting() const { return begun && !closed && !settled(); }
  };

  void take(const sent_packet& packet, moment now) {
    if (packet.cut == cutToRunt || packet.header.ids != setup_.ids || packet.header.is_test()) {
      drop_stray();
      ++counters.packetsForeign;
    } else if (frame* of = frame_of(packet, now)) {
      take(*of, packet, now);
    }
  }

  frame* frame_of(const sent_packet& packet, moment now) {
    const std::uint64_t id = packet.header.blockId;
    const auto found = std::ranges::find(window_, id, &frame::id);
    const bool known = found != window_.end();
    if (known && found->begun) {
      drop_stray();
      return &*found;
    }
    if (is_error(packet.header.state)) {
      return nullptr;
    }
    if (stray_ && stray_->header.blockId == id && stray_->header.packetId + 1 == packet.header.packetId) {
      frame& of = move_to(id, now);
      if (stray_->header.format == gige_protocol::packet_format::leader) {
        take(of, *std::exchange(stray_, std::nullopt), now);
      }
      drop_stray();
      return &of;
    }
    drop_stray();
    if (known) {
      begin(*found, now);
      return &*found;
    }
    const bool first = window_.empty();
    const std::int64_t ahead = first ? 0 : block_distance(window_.back().id, id, setup_.ids);
    if (first ? id == 1 || packet.header.format == gige_protocol::packet_format::leader : ahead == 1) {
      return &move_to(id, now);
    }
    if (first || (ahead < 0 && ahead >= -16)) {
      ++counters.packetsDuplicate;
    } else {
      stray_ = packet;
    }
    return nullptr;
  }

  void take(frame& of, const sent_packet& packet, moment now) {
    const std::uint32_t number = packet.header.packetId;
    if (is_error(packet.header.state)) {
      const bool all = packet.header.state == gige_protocol::status::packet_and_previous_removed;
      for (std::uint32_t gone = all ? 0 : number; !of.closed && number <= of.trailer && gone <= number;
           ++gone) {
        if (!is_late(packet.header.state) && of.lacks(gone) && gone < of.sent) {
          of.writtenOff.insert(gone);
        }
      }
      return;
    }
    if ((of.closed && !of.refused) || of.received.contains(number)) {
      ++counters.packetsDuplicate;
      return;
    }
    ++counters.packetsReceived;
    if (number > layout_.trailer()) {
      of.refused = true;
      return;
    }
    of.received.insert(number);
    of.writtenOff.erase(number);
    counters.packetsReceivedAgain += of.requested.contains(number) ? 1 : 0;
    of.sent = of.requested.contains(number) ? of.sent : std::max(of.sent, number + 1);
    of.quiet = now;
    of.refused = of.refused || contradicts(of, packet);
  }

  bool contradicts(frame& of, const sent_packet& packet) const {
    const std::uint32_t number = packet.header.packetId;
    switch (packet.header.format) {
      case gige_protocol::packet_format::leader: {
        if (number != 0 || packet.cut > 0) {
          return true;
        }
        of.leader = packet.leader;
        const auto& image = packet.leader.image;
        const auto type = packet.leader.type;
        return !(has_geometry(type) || type == gige_protocol::payload_type::chunk_data) ||
               (has_geometry(type) &&
                (image.pixelFormat != setup_.pixelFormat || image.width != setup_.width ||
                 image.height != setup_.height || image.paddingX != 0));
      }
      case gige_protocol::packet_format::trailer:
        of.end = packet.trailer;
        return packet.cut > 0 || !ends_at(of, number);
      case gige_protocol::packet_format::payload: {
        const std::uint32_t last = of.trailerKnown ? of.trailer - 1 : layout_.payloadPackets;
        of.bytes += packet.bytes;
        return number == 0 || number > last || packet.bytes == 0 || packet.bytes > layout_.bytes_of(number) ||
               (packet.bytes < layout_.bytesPerPacket && !ends_at(of, number + 1));
      }
      default:
        return true;
    }
  }

  bool ends_at(frame& of, std::uint32_t packet) const {
    if (*of.received.rbegin() > packet || (of.trailerKnown && of.trailer != packet)) {
      return false;
    }
    of.trailerKnown = true;
    of.trailer = packet;
    std::erase_if(of.writtenOff, [&](std::uint32_t gone) { return gone > packet; });
    return true;
  }

  void begin(frame& of, moment now) {
    of.begun = true;
    of.lent = lends_();
    of.budget = of.lent && setup_.cameraResends ? setup_.maxPacketResends : 0;
    of.trailer = layout_.trailer();
    of.since = of.quiet = now;
  }

  frame& move_to(std::uint64_t id, moment now) {
    const std::int64_t ahead = window_.empty() ? 0 : block_distance(window_.back().id, id, setup_.ids);
    if (ahead == 1) {
      for (; window_.size() > 1; window_.erase(window_.begin())) {
        close(window_.front());
      }
    } else {
      std::ranges::for_each(window_, [this](frame& of) { close(of); });
      window_.clear();
      if (ahead > 1 && ahead <= 0x7fff) {
        counters.framesMissing += static_cast<std::uint64_t>(ahead) - 2;
        window_.push_back({.id = id == 1 ? largest_block_id(setup_.ids) : id - 1});
      }
    }
    window_.push_back({.id = id});
    begin(window_.back(), now);
    return window_.back();
  }

  void drop_stray() {
    counters.packetsForeign += stray_ ? 1 : 0;
    stray_.reset();
  }

  void miss(frame& of, moment now) {
    if (of.examined < of.sent) {
      ask(of, {of.examined, of.sent, now}, request::first);
      of.examined = of.sent;
    }
  }

  // Asks for each run of packets that are missing within a range where that may be, and waits for it unless
  // the camera may not have sent it yet.
  void ask(frame& of, range missing, request kind) {
    for (std::uint32_t first = missing.first; first < missing.end; ++first) {
      std::uint32_t end = first;
      while (end < missing.end && of.lacks(end)) {
        ++end;
      }
      if (end == first) {
        continue;
      }
      const bool asks = end - first <= of.budget && of.writtenOff.empty();
      if (asks) {
        of.budget -= end - first;
        counters.packetsRequested += end - first;
        requests.push_back({of.id, first, end - 1});
      }
      for (std::uint32_t packet = first; packet < end && (asks || kind == request::repeated); ++packet) {
        (asks ? of.requested : of.writtenOff).insert(packet);
      }
      if (kind == request::first || (asks && kind == request::repeated)) {
        of.waits.push_back({first, end, missing.since});
      }
      first = end;
    }
  }

  bool expire(frame& of, moment now) {
    if (of.sent <= of.trailer && now - of.quiet >= resend_timeout::shortest) {
      ask(of, {of.sent, of.trailer + 1, now}, request::probe);
      of.quiet = now;
    }
    while (!of.waits.empty() && of.waits.front().since + resend_timeout::shortest <= now) {
      const range late = of.waits.front();
      of.waits.erase(of.waits.begin());
      ask(of, {late.first, late.end, now}, request::repeated);
    }
    return now - of.since >= setup_.frameTimeout;
  }

  void close_settled() {
    if (window_.size() > 1 && window_.front().begun && window_.front().settled()) {
      close(window_.front());
    }
    if (!window_.empty() && window_.back().settled() && !window_.front().waiting()) {
      close_newest();
    }
  }

  // With the frame before it, if that has not begun.
  void close_newest() {
    close(window_.front());
    if (!window_.front().begun) {
      window_.erase(window_.begin());
    }
    close(window_.back());
  }

  void close(frame& of) {
    if (of.closed) {
      return;
    }
    of.closed = true;
    if (!of.begun) {
      ++counters.framesMissing;
      return;
    }
    const bool complete = of.complete();
    const bool chunks = of.end.type == gige_protocol::payload_type::chunk_data;
    const std::uint64_t bytes = chunks ? of.end.payloadSize : of.bytes;
    if (!of.refused && complete) {
      of.refused =
          of.end.type != of.leader.type || bytes < layout_.imageBytes || bytes > of.bytes ||
          (of.end.type == gige_protocol::payload_type::image_with_chunks && of.end.chunkSize > of.bytes) ||
          (has_geometry(of.end.type) && of.end.height != 0 && of.end.height != setup_.height);
    }
    frame_outcome outcome = complete ? frame_outcome::whole : frame_outcome::incomplete;
    if (of.refused || !of.lent) {
      outcome = of.refused ? frame_outcome::refused : frame_outcome::dropped;
    }
    std::uint64_t& count = outcome == frame_outcome::whole        ? counters.framesWhole
                           : outcome == frame_outcome::incomplete ? counters.framesIncomplete
                           : outcome == frame_outcome::refused    ? counters.framesRefused
                                                                  : counters.framesDropped;
    ++count;
    counters.packetsLost += of.refused ? 0 : of.trailer + 1 - of.received.size();
    ended.push_back({outcome, of.id, of.leader.timestamp, outcome == frame_outcome::whole ? bytes : 0});
  }

  const assembly_setup setup_;
  const frame_layout layout_;
  const std::function<bool()> lends_;
  std::vector<frame> window_;  // the frame before the newest where there is one, and the newest
  std::optional<sent_packet> stray_;
};

}  // namespace gige

#endif
