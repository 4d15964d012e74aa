#include "host/config/text.h"

#include <fmt/format.h>

namespace host {

std::string printable(std::string_view text) {
  std::string shown;
  for (const char letter : text) {
    const auto code = static_cast<unsigned char>(letter);
    if (code < 0x20 || code == 0x7F) {
      shown += fmt::format("\\x{:02x}", code);
    } else {
      shown += letter;
    }
  }
  return shown;
}

}  // namespace host
