// What became of each packet of a frame.
#ifndef PLATFORM_GIGE_STREAM_PACKET_RECORD_H
#define PLATFORM_GIGE_STREAM_PACKET_RECORD_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace gige {

// Packets are numbered from 0. One is missing as long as it was neither received nor written off.
class packet_record {
 public:
  // Of packets 0 to `count` - 1. No function may be called with another packet. Raises std::bad_alloc.
  explicit packet_record(std::uint32_t count);

  // Forgets everything.
  void clear();

  // The packet has arrived, perhaps after it was written off. False if it had arrived before.
  bool receive(std::uint32_t packet) {
    row& of = rows_[packet / bitsPerRow];
    const std::uint64_t bit = bit_of(packet);
    if ((of.received & bit) != 0) {
      return false;
    }
    of.received |= bit;
    ++received_;
    if ((of.writtenOff & bit) != 0) {
      of.writtenOff &= ~bit;
      --writtenOff_;
    }
    return true;
  }
  std::uint32_t received() const { return received_; }

  void mark_requested(std::uint32_t first, std::uint32_t last);
  bool was_requested(std::uint32_t packet) const {
    return (rows_[packet / bitsPerRow].requested & bit_of(packet)) != 0;
  }

  // Of the packets from `first` to `last`, writes off those that are missing.
  void write_off(std::uint32_t first, std::uint32_t last);
  // The frame turns out to be shorter and to end with packet `end` - 1. Packets from `end` on are no longer
  // missing or written off. Holds until `clear`.
  void end_at(std::uint32_t end);
  std::uint32_t written_off() const { return writtenOff_; }

  // The first missing packet from `from` on, and the first that is not missing; `end` when there is none
  // before `end`.
  std::uint32_t next_missing(std::uint32_t from, std::uint32_t end) const;
  std::uint32_t next_settled(std::uint32_t from, std::uint32_t end) const;

  // Calls `visit(first, last)` for each run of missing packets from `from` on and before `end`. `visit` may
  // write off packets of its run.
  template <class visitor>
  void for_missing_runs(std::uint32_t from, std::uint32_t end, visitor visit) const {
    for (std::uint32_t first = next_missing(from, end); first < end;) {
      const std::uint32_t behind = next_settled(first, end);
      visit(first, behind - 1);
      first = next_missing(behind, end);
    }
  }

 private:
  static constexpr std::uint32_t bitsPerRow = 64;
  struct row {
    std::uint64_t received = 0;
    std::uint64_t requested = 0;
    std::uint64_t writtenOff = 0;
    std::uint64_t missing() const { return ~(received | writtenOff); }
  };
  static std::uint64_t bit_of(std::uint32_t packet) { return std::uint64_t{1} << packet % bitsPerRow; }
  template <class visitor>
  void for_rows(std::uint32_t first, std::uint32_t last, visitor visit);
  template <class selector>
  std::uint32_t next(std::uint32_t from, std::uint32_t end, selector select) const;

  std::vector<row> rows_;
  const std::uint32_t count_;
  std::uint32_t end_ = 0;
  std::uint32_t received_ = 0;
  std::uint32_t writtenOff_ = 0;
};

}  // namespace gige

#endif
