// Texts about a picture inside its PNG file.
#ifndef HOST_WEB_LIVE_PNG_TEXT_H
#define HOST_WEB_LIVE_PNG_TEXT_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// A PNG file with these texts in it (UTF-8, by keywords of 1 to 79 characters), right behind its head.
std::vector<std::uint8_t> with_texts(const std::vector<std::uint8_t>& png,
                                     const std::vector<std::pair<std::string, std::string>>& texts);

}  // namespace host

#endif
