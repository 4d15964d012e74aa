// One frame while its packets arrive.
#ifndef PLATFORM_GIGE_STREAM_FRAME_IN_PROGRESS_H
#define PLATFORM_GIGE_STREAM_FRAME_IN_PROGRESS_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/gige/stream/assembly_counters.h"
#include "platform/gige/stream/frame_layout.h"
#include "platform/gige/stream/frame_owner.h"
#include "platform/gige/stream/packet_record.h"
#include "platform/gige/stream/resend_schedule.h"
#include "platform/gige/stream/resend_timeout.h"
#include "platform/gige_protocol/gvsp.h"

namespace gige {

// Takes the packets of a frame, in any order and any number of times. Knows which have arrived and which are
// missing, and whether they agree with each other and with the setup. Counts packets. One object is used for
// one frame after the other.
class frame_in_progress {
 public:
  // The owner, the counters and the time-out are the stream's. Raises std::bad_alloc.
  frame_in_progress(const assembly_setup& setup, const frame_layout& layout, frame_owner& owner,
                    assembly_counters& counters, resend_timeout& timeout);
  frame_in_progress(const frame_in_progress&) = delete;
  frame_in_progress& operator=(const frame_in_progress&) = delete;

  std::uint64_t id() const { return id_; }  // 0: of no frame
  bool is_awaited() const { return stage_ == stage::awaited; }
  bool is_open() const { return stage_ == stage::open; }

  // Each of these starts anew. `clear`: with no frame. `await`: with a frame of which nothing has arrived
  // although a later one has begun. `begin`: with a frame whose first packet has arrived, and the memory lent
  // for it, or nullptr.
  void clear();
  void await(std::uint64_t id);
  void begin(std::uint64_t id, std::uint8_t* place, moment now);

  // Takes a packet of this frame, which is begun or closed. `bodyBytes` is the size of the body as it was
  // sent, of which `body` may be only the start. Gives where to put the body; nullptr for nowhere.
  std::uint8_t* take(const gige_protocol::packet_header& header, gige_protocol::byte_view body,
                     std::size_t bodyBytes, moment now);

  // Asks for what is missing of the packets that were sent. A packet was sent when a later one of the frame
  // arrived without request, or when a later frame has begun. Until then, a camera that gets a request for it
  // may answer that it does not have it, and send it all the same.
  void request_gaps(moment now);
  // A later frame has begun, so that all packets of this one were sent.
  void request_rest(moment now);

  // Requests again, or writes off, what did not arrive in time. True if the frame itself takes too long.
  bool expire(moment now);
  // Of an open frame: when `expire` has something to do.
  moment deadline();

  // Of a frame that has begun: whether it waits for no packet. All have arrived or are written off, or the
  // frame is refused.
  bool settled() const { return packets_to_come() == record_.written_off() || refusal_.what != nullptr; }
  // Whether it is open and not settled.
  bool waits() const { return is_open() && !settled(); }

  // Ends an open frame as it is.
  ended_frame close();

  // Of an open frame: the packet behind the highest that came; the number of its packets, as far as is known;
  // how many of them did not come; its memory.
  std::uint32_t next_packet() const { return highest_ + 1; }
  std::uint32_t packet_count() const { return trailer_ + 1; }
  std::uint32_t packets_to_come() const;
  std::uint8_t* place() const { return place_; }

 private:
  enum class stage : std::uint8_t {
    closed,   // ended, or of no frame: what still comes of it is too late
    awaited,  // nothing came yet
    open,     // something came, and it has not ended
  };
  void take_absence(const gige_protocol::packet_header& header);
  bool count_arrival(std::uint32_t packet, moment now);
  std::uint8_t* take_payload(std::uint32_t packet, std::size_t bytes);
  void take_leader(std::uint32_t packet, gige_protocol::byte_view body);
  void compare_geometry(const gige_protocol::image_geometry& image);
  void take_trailer(std::uint32_t packet, gige_protocol::byte_view body);
  void end_with_trailer(std::uint32_t packet);
  void judge_whole();
  std::uint64_t valid_bytes() const;
  frame_outcome outcome(bool complete) const;
  void refuse(const char* what, std::uint64_t found, std::uint64_t expected);

  const assembly_setup& setup_;
  const frame_layout& layout_;
  assembly_counters& counters_;
  const resend_timeout& timeout_;
  packet_record record_;
  resend_schedule schedule_;

  stage stage_ = stage::closed;
  std::uint64_t id_ = 0;
  std::uint8_t* place_ = nullptr;
  frame_refusal refusal_;

  std::uint32_t highest_ = 0;       // packet that came
  std::uint32_t sent_ = 0;          // packets below were sent
  std::uint32_t examined_ = 0;      // packets below were looked at for gaps
  std::uint32_t trailer_ = 0;       // its number, as far as is known
  bool trailerKnown_ = false;       // from the frame itself
  std::uint64_t payloadBytes_ = 0;  // that came
  std::optional<gige_protocol::leader> leaderSeen_;
  std::optional<gige_protocol::trailer> trailerSeen_;
  moment begun_{};
  moment lastPacket_{};
  moment quietSince_{};  // the last packet, or the last request for packets that may not have been sent
};

}  // namespace gige

#endif
