// Frame assembly as plainly as it can be told: one packet at a time, sets of packets, no places and no bits.
#ifndef TESTS_GIGE_STREAM_ASSEMBLY_MODEL_H
#define TESTS_GIGE_STREAM_ASSEMBLY_MODEL_H

#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "platform/gige/stream/assembly_counters.h"
#include "platform/gige/stream/frame_layout.h"
#include "platform/gige/stream/frame_owner.h"
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

  void accept(const std::vector<sent_packet>& batch, moment now);
  void expire(moment now);
  std::optional<moment> deadline() const;
  void reset();

  // All there was so far.
  std::vector<model_end> ended;
  std::vector<resend_request> requests;
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

  void take(const sent_packet& packet, moment now);
  frame* frame_of(const sent_packet& packet, moment now);
  void take(frame& of, const sent_packet& packet, moment now);
  bool contradicts(frame& of, const sent_packet& packet) const;
  bool ends_at(frame& of, std::uint32_t packet) const;
  void begin(frame& of, moment now);
  frame& move_to(std::uint64_t id, moment now);
  void drop_stray();
  void miss(frame& of, moment now);
  void ask(frame& of, range missing, request kind);
  bool expire(frame& of, moment now);
  void close(frame& of);
  void close_settled();
  void close_newest();

  const assembly_setup setup_;
  const frame_layout layout_;
  const std::function<bool()> lends_;
  std::vector<frame> window_;  // the frame before the newest where there is one, and the newest
  std::optional<sent_packet> stray_;
};

}  // namespace gige

#endif
