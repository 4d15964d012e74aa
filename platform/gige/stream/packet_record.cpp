#include "platform/gige/stream/packet_record.h"

#include <algorithm>
#include <bit>

namespace gige {

packet_record::packet_record(std::uint32_t count)
    : rows_(count / bitsPerRow + 1), count_(count), end_(count) {}

void packet_record::clear() {
  std::ranges::fill(rows_, row{});
  end_ = count_;
  received_ = 0;
  writtenOff_ = 0;
}

// Visits each row that has some of these packets, with their bits.
template <class visitor>
void packet_record::for_rows(std::uint32_t first, std::uint32_t last, visitor visit) {
  for (std::uint32_t index = first / bitsPerRow; index <= last / bitsPerRow; ++index) {
    std::uint64_t bits = ~std::uint64_t{0};
    if (index == first / bitsPerRow) {
      bits &= ~std::uint64_t{0} << first % bitsPerRow;
    }
    if (index == last / bitsPerRow) {
      bits &= ~std::uint64_t{0} >> (bitsPerRow - 1 - last % bitsPerRow);
    }
    visit(rows_[index], bits);
  }
}

void packet_record::mark_requested(std::uint32_t first, std::uint32_t last) {
  for_rows(first, last, [](row& of, std::uint64_t bits) { of.requested |= bits; });
}

void packet_record::write_off(std::uint32_t first, std::uint32_t last) {
  if (first >= end_) {
    return;
  }
  for_rows(first, std::min(last, end_ - 1), [this](row& of, std::uint64_t bits) {
    const std::uint64_t lost = of.missing() & bits;
    of.writtenOff |= lost;
    writtenOff_ += static_cast<std::uint32_t>(std::popcount(lost));
  });
}

void packet_record::end_at(std::uint32_t end) {
  end_ = end;
  if (writtenOff_ == 0 || end == count_) {
    return;
  }
  for_rows(end, count_ - 1, [this](row& of, std::uint64_t bits) {
    writtenOff_ -= static_cast<std::uint32_t>(std::popcount(of.writtenOff & bits));
    of.writtenOff &= ~bits;
  });
}

// The first packet from `from` on whose bit is set in what `select` makes of its row.
template <class selector>
std::uint32_t packet_record::next(std::uint32_t from, std::uint32_t end, selector select) const {
  while (from < end) {
    const std::uint64_t bits = select(rows_[from / bitsPerRow]) >> from % bitsPerRow;
    if (bits != 0) {
      return std::min(end, from + static_cast<std::uint32_t>(std::countr_zero(bits)));
    }
    from = (from / bitsPerRow + 1) * bitsPerRow;
  }
  return end;
}

std::uint32_t packet_record::next_missing(std::uint32_t from, std::uint32_t end) const {
  const std::uint32_t limit = std::min(end, end_);
  const std::uint32_t packet = next(from, limit, [](const row& of) { return of.missing(); });
  return packet < limit ? packet : end;
}

std::uint32_t packet_record::next_settled(std::uint32_t from, std::uint32_t end) const {
  return next(from, std::min(end, end_), [](const row& of) { return ~of.missing(); });
}

}  // namespace gige
