#include "host/web/live/png_text.h"

#include <zlib.h>

namespace host {
namespace {

constexpr std::size_t kHeadBytes = 8 + 25;  // signature and IHDR, which is always first

void append_big_endian(std::string& to, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    to += static_cast<char>(value >> shift);
  }
}

// An iTXt chunk: not compressed, of no language, without a translated keyword.
std::string text_chunk(const std::string& keyword, const std::string& text) {
  const std::string body = "iTXt" + keyword + std::string(5, '\0') + text;
  std::string chunk;
  append_big_endian(chunk, static_cast<std::uint32_t>(body.size() - 4));
  chunk += body;
  const auto* bytes = reinterpret_cast<const Bytef*>(body.data());
  append_big_endian(chunk, static_cast<std::uint32_t>(crc32(0, bytes, static_cast<uInt>(body.size()))));
  return chunk;
}

}  // namespace

std::vector<std::uint8_t> with_texts(const std::vector<std::uint8_t>& png,
                                     const std::vector<std::pair<std::string, std::string>>& texts) {
  std::vector<std::uint8_t> result = png;
  std::string chunks;
  for (const auto& [keyword, text] : texts) {
    chunks += text_chunk(keyword, text);
  }
  result.insert(result.begin() + kHeadBytes, chunks.begin(), chunks.end());
  return result;
}

}  // namespace host
