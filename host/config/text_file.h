// Reading of a file that somebody named, with limits of size and time.
#ifndef HOST_CONFIG_TEXT_FILE_H
#define HOST_CONFIG_TEXT_FILE_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace host {

/// The content of a file, or why there is none.
struct text_file {
  std::string text;
  std::optional<std::string> failure;  ///< in words: "is empty"
};

/// Reads a file, a pipe or a device of at most `bytesMax`, and waits for a pipe's writer at most `patience`.
text_file read_text(const std::string& path, std::size_t bytesMax, std::chrono::milliseconds patience);

}  // namespace host

#endif
