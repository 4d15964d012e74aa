#include "platform/gige/stream/payload_moves.h"

#include <cstring>
#include <functional>
#include <span>

#include "platform/gige/stream/copy_past_cache.h"

namespace gige {

payload_moves::payload_moves(std::size_t largestBatch, std::size_t bytesPerPlace)
    : bytesPerPlace_(bytesPerPlace), moves_(largestBatch), displaced_(bytesPerPlace) {}

void payload_moves::start() {
  runCount_ = 0;
}

void payload_moves::predict(std::size_t index, const std::uint8_t* places, std::size_t count) {
  runs_[runCount_] = {index, places, count};
  ++runCount_;
}

void payload_moves::plan(std::size_t index, const std::uint8_t* from, std::uint8_t* to, std::size_t bytes) {
  moves_[index] = {.from = from, .to = to, .bytes = bytes};
  end_ = index + 1;
}

void payload_moves::carry_out() {
  for (std::size_t index = 0; index < end_; ++index) {
    if (moves_[index].to == nullptr) {
      continue;
    }
    if (runCount_ == 0) {  // nothing is in the way
      carry_out_from_outside(moves_[index]);
    } else {
      carry_out_chain(index);
    }
  }
  if (end_ > 0) {
    finish_copies();
  }
  end_ = 0;
}

// What was not received into places comes out of a packet ring, which the kernel has filled at some time.
void payload_moves::carry_out_from_outside(move& of) {
  copy_past_cache(of.to, of.from, of.bytes);
  of = {};
}

// Carries out the move `first` and all that must be before it.
void payload_moves::carry_out_chain(std::size_t first) {
  std::size_t last = first;
  for (std::size_t next = in_the_way_of(moves_[last]); next != none; next = in_the_way_of(moves_[last])) {
    if (next == first) {  // a circle
      std::memcpy(displaced_.data(), moves_[first].from, moves_[first].bytes);
      moves_[first].from = displaced_.data();
      break;
    }
    moves_[next].before = last;
    last = next;
  }
  while (last != none) {
    move& done = moves_[last];
    std::memcpy(done.to, done.from, done.bytes);
    last = done.before;
    done = {};
  }
}

// The move that has yet to take its payload away from where that one goes; `none` if there is none.
std::size_t payload_moves::in_the_way_of(const move& of) const {
  for (const run& predicted : std::span(runs_).first(runCount_)) {
    const std::uint8_t* end = predicted.places + predicted.count * bytesPerPlace_;
    if (std::less_equal<>()(predicted.places, of.to) && std::less<>()(of.to, end)) {
      const auto place = static_cast<std::size_t>(of.to - predicted.places) / bytesPerPlace_;
      const std::size_t index = predicted.index + place;
      return index < end_ && moves_[index].from == of.to ? index : none;
    }
  }
  return none;
}

}  // namespace gige
