// Frame assembly: stream packets in, whole frames and requests for lost packets out.
//
// The assembler knows no socket, no clock and no thread. Its owner hands it received packets together with
// the time, and lends it memory for frames. Nothing is allocated after construction, and every packet costs
// about the same. Packets are not trusted: the geometry is that of the setup, and a forged packet can spoil
// only the frame whose id it bears.
//
// Two frames are in progress at most, the newest one and the one before it, since the end of the one and the
// start of the other may interleave. A frame ends when its last missing packet arrives, when all that it
// lacks is written off, when it takes too long, or when the frame after the next begins. A missing packet is
// written off when the camera does not have it, or when it does not arrive and no request is left;
// never before the camera has sent it. When packet 40 of a frame is the last that came, packet 41 may be lost
// or still to be sent: it is requested after a while, but given up only once a later packet or the next frame
// has come.
//
// An id that is not the next one moves the stream only when two packets of it with successive numbers follow
// each other, so that a single stray packet ends no frame.
//
// Everything is called from one thread at a time.
#ifndef PLATFORM_GIGE_STREAM_FRAME_ASSEMBLER_H
#define PLATFORM_GIGE_STREAM_FRAME_ASSEMBLER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/gige/stream/assembly_counters.h"
#include "platform/gige/stream/frame_in_progress.h"
#include "platform/gige/stream/frame_layout.h"
#include "platform/gige/stream/frame_owner.h"
#include "platform/gige/stream/payload_moves.h"
#include "platform/gige/stream/resend_timeout.h"
#include "platform/gige_protocol/gvsp.h"

namespace gige {

// A packet as it was received, in two pieces.
struct datagram {
  const std::uint8_t* header = nullptr;  // the first header_size(ids) bytes, or all where there are fewer
  const std::uint8_t* body = nullptr;    // what follows them, the first largest_body() bytes of it
  std::size_t size = 0;                  // of the datagram as it was sent, header and body
};

class frame_assembler {
 public:
  // Allocates what it needs; the owner must outlive it. Raises std::invalid_argument with a text that names
  // what in the setup cannot be, as payload bytes fewer than those of the image.
  frame_assembler(const assembly_setup& setup, frame_owner& owner);
  frame_assembler(const frame_assembler&) = delete;
  frame_assembler& operator=(const frame_assembler&) = delete;
  // Gives no memory back: `reset` does.
  ~frame_assembler() = default;

  // Forgets the frames in progress, uncounted, and gives their memory back. Ids may start anew. To be called
  // before each acquisition. Counters go on.
  void reset();

  // How many bytes of a body `accept` looks at. Longer ones are refused by their size and may be cut.
  std::size_t largest_body() const { return layout_.bytesPerPacket; }

  // Says where the bodies of the next datagrams are to be received, one place each: straight into a frame, or
  // nullptr for the caller's own memory of largest_body() bytes. Gives the number of places that were filled
  // in, from 1 to places.size() (of which there is at least one): how many datagrams may be received now. The
  // caller receives them in order and calls `accept` with them; a call of anything else voids the prediction.
  std::size_t predict(std::span<std::uint8_t*> places);

  // Takes datagrams in the order of their arrival, at most assembly_setup::largestBatch of them. A body is
  // either where `predict` said for the datagram of that number, or in memory of the caller. `now` is taken
  // after they were received. Asks for what is missing and ends frames, as the owner's functions get to know.
  void accept(std::span<const datagram> batch, moment now);

  // Asks again for what did not come in time, and ends frames that took too long. To be called at
  // `deadline`, after all that had been received was accepted; at other times it does no harm.
  void expire(moment now);

  // When `expire` has something to do; nothing where no frame is waited for.
  std::optional<moment> deadline();

  // Packets that the newest frame still lacks; 0 between frames.
  std::uint32_t packets_to_come() const;

  // They rise from construction on.
  const assembly_counters& counters() const { return counters_; }

 private:
  // A packet with an unexpected id, kept until the next packet shows whether the stream has moved there.
  struct stray_packet {
    gige_protocol::packet_header header{};  // blockId 0: there is none
    std::array<std::uint8_t, gige_protocol::largestLeaderSize> body{};
    std::size_t bodyBytes = 0;  // all of them, also beyond what is kept
  };

  std::size_t predict_packets(std::span<std::uint8_t*> places, std::size_t index, std::uint8_t* frame,
                              std::uint32_t packet, std::uint32_t end);
  void take(std::size_t index, const datagram& packet, moment now);
  frame_in_progress* frame_of(const gige_protocol::packet_header& header, gige_protocol::byte_view body,
                              moment now);
  bool begins_next(const gige_protocol::packet_header& header) const;
  bool is_late(std::uint64_t id) const;
  bool confirms_stray(const gige_protocol::packet_header& header) const;
  void keep_stray(const gige_protocol::packet_header& header, gige_protocol::byte_view body);
  void drop_stray();
  void follow_stray(moment now);

  void move_to(std::uint64_t id, moment now);
  std::uint8_t* lend();
  void retire(frame_in_progress& frame);
  void close(frame_in_progress& frame);
  void close_settled();
  void request_gaps(moment now);
  void hand_out();

  frame_in_progress& newest() { return frames_[newest_]; }
  const frame_in_progress& newest() const { return frames_[newest_]; }
  frame_in_progress& older() { return frames_[1 - newest_]; }

  const assembly_setup setup_;
  const frame_layout layout_;
  frame_owner& owner_;
  assembly_counters counters_;
  resend_timeout timeout_;

  std::array<frame_in_progress, 2> frames_;
  std::size_t newest_ = 0;  // which of the two
  bool started_ = false;    // a frame has begun since the last reset
  stray_packet stray_;

  std::uint8_t* nextMemory_ = nullptr;  // for the frame after the newest
  payload_moves moves_;
  std::vector<ended_frame> ended_;  // handed out once all payload is in its place
};

}  // namespace gige

#endif
