// Big-endian numbers in memory, the byte order of everything on the wire.
#ifndef PLATFORM_GIGE_PROTOCOL_BYTES_H
#define PLATFORM_GIGE_PROTOCOL_BYTES_H

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <type_traits>

namespace gige_protocol {

// Bytes that are only read. Never owned: they must outlive the span and whatever was parsed out of it.
using byte_view = std::span<const std::uint8_t>;

// The type of half of a number.
template <std::unsigned_integral number>
using half_of = std::conditional_t<sizeof(number) == 8, std::uint32_t,
                                   std::conditional_t<sizeof(number) == 4, std::uint16_t, std::uint8_t>>;

// The number whose most significant byte is at `offset`, which all of its bytes must be inside of `bytes`. By
// halves, since compilers make one instruction of that, and a loop of a loop.
template <std::unsigned_integral number>
constexpr number load(byte_view bytes, std::size_t offset) {
  if constexpr (sizeof(number) == 1) {
    return bytes[offset];
  } else {
    using half = half_of<number>;
    const number high = load<half>(bytes, offset);
    return static_cast<number>(high << (8 * sizeof(half)) | load<half>(bytes, offset + sizeof(half)));
  }
}

// The way back, with the same condition.
template <std::unsigned_integral number>
constexpr void store(std::span<std::uint8_t> bytes, std::size_t offset, number value) {
  if constexpr (sizeof(number) == 1) {
    bytes[offset] = value;
  } else {
    using half = half_of<number>;
    store(bytes, offset, static_cast<half>(value >> (8 * sizeof(half))));
    store(bytes, offset + sizeof(half), static_cast<half>(value));
  }
}

// Bytes that are put one behind the other, at most `capacity` of them, without allocation.
template <std::size_t capacity>
class byte_buffer {
 public:
  // Puts a number. All puts raise std::length_error, and change nothing, where it would not fit.
  template <std::unsigned_integral number>
  void put(number value) {
    store(room(sizeof(number)), 0, value);
  }
  void put(byte_view bytes) { std::ranges::copy(bytes, room(bytes.size()).begin()); }
  // Puts `count` bytes of zero: what a standard calls reserved.
  void put_zeros(std::size_t count) { std::ranges::fill(room(count), std::uint8_t{0}); }

  // What was put so far; as long as the buffer lives, and until more is put.
  byte_view view() const { return byte_view(bytes_).first(size_); }
  const std::uint8_t* data() const { return bytes_.data(); }
  std::size_t size() const { return size_; }

 private:
  std::span<std::uint8_t> room(std::size_t count) {
    if (count > capacity - size_) {
      throw std::length_error("more bytes than a message holds");
    }
    const auto place = std::span(bytes_).subspan(size_, count);
    size_ += count;
    return place;
  }

  std::array<std::uint8_t, capacity> bytes_{};
  std::size_t size_ = 0;
};

}  // namespace gige_protocol

#endif
