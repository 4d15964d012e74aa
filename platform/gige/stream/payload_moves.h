// Payload that was received into the wrong place on its way to the right one.
#ifndef PLATFORM_GIGE_STREAM_PAYLOAD_MOVES_H
#define PLATFORM_GIGE_STREAM_PAYLOAD_MOVES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace gige {

// The datagrams of a batch are received into predicted places. When packet 7 is lost, packet 8 is received
// into the place of 7 and packet 9 into the place of 8. So 8 must move before 9 can. All moves of a batch are
// planned first and then carried out in an order that empties each place before it is filled. When moves form
// a circle, one payload is copied aside to make room.
class payload_moves {
 public:
  // Places are `bytesPerPlace` apart and that large. Raises std::bad_alloc.
  payload_moves(std::size_t largestBatch, std::size_t bytesPerPlace);

  // Starts a batch, with nothing predicted and nothing planned.
  void start();
  // The datagrams from `index` on were predicted to go to `count` adjacent places. At most two such runs.
  void predict(std::size_t index, const std::uint8_t* places, std::size_t count);
  // The payload of the datagram with that index is to be moved. No two go to the same place.
  void plan(std::size_t index, const std::uint8_t* from, std::uint8_t* to, std::size_t bytes);
  void carry_out();

 private:
  static constexpr std::size_t none = static_cast<std::size_t>(-1);
  struct move {
    const std::uint8_t* from = nullptr;
    std::uint8_t* to = nullptr;  // nullptr: nothing to move
    std::size_t bytes = 0;
    std::size_t before = none;  // which waits for this one to make room
  };
  struct run {
    std::size_t index = 0;
    const std::uint8_t* places = nullptr;
    std::size_t count = 0;
  };
  std::size_t in_the_way_of(const move& of) const;
  static void carry_out_from_outside(move& of);
  void carry_out_chain(std::size_t first);

  const std::size_t bytesPerPlace_;
  std::vector<move> moves_;  // of each datagram
  std::size_t end_ = 0;      // behind the last one that was planned
  std::array<run, 2> runs_;
  std::size_t runCount_ = 0;
  std::vector<std::uint8_t> displaced_;  // one payload
};

}  // namespace gige

#endif
