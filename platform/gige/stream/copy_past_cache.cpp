#include "platform/gige/stream/copy_past_cache.h"

#include <algorithm>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace gige {

#ifdef __SSE2__

namespace {

constexpr std::size_t lineBytes = 64;  // of the cache: only whole lines go past it

void copy_line(std::uint8_t* to, const std::uint8_t* from) {
  const auto* source = reinterpret_cast<const __m128i*>(from);
  auto* target = reinterpret_cast<__m128i*>(to);
  for (std::size_t part = 0; part < lineBytes / sizeof(__m128i); ++part) {
    _mm_stream_si128(target + part, _mm_loadu_si128(source + part));
  }
}

}  // namespace

void copy_past_cache(std::uint8_t* to, const std::uint8_t* from, std::size_t bytes) {
  const std::size_t intoLine = reinterpret_cast<std::uintptr_t>(to) % lineBytes;
  const std::size_t before = std::min(bytes, (lineBytes - intoLine) % lineBytes);
  std::memcpy(to, from, before);
  std::size_t done = before;
  for (; done + lineBytes <= bytes; done += lineBytes) {
    copy_line(to + done, from + done);
  }
  std::memcpy(to + done, from + done, bytes - done);
}

void finish_copies() {
  _mm_sfence();
}

#else

void copy_past_cache(std::uint8_t* to, const std::uint8_t* from, std::size_t bytes) {
  std::memcpy(to, from, bytes);
}

void finish_copies() {}

#endif

}  // namespace gige
