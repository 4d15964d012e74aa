// Frames as image files in a directory, with a line about each in frames.jsonl.
#ifndef HOST_OUTPUTS_IMAGE_FILES_H
#define HOST_OUTPUTS_IMAGE_FILES_H

#include <filesystem>
#include <string>
#include <vector>

#include "host/outputs/frame_writer.h"

namespace host {

enum class image_format : std::uint8_t { png, pgm, raw };

/// The file name extension, which is also the format's name on the command line.
const char* format_name(image_format format);

/// A frame as the bytes of a file. raw: the pixels alone.
std::vector<std::uint8_t> encode(const stored_frame& frame, image_format format);

/// Writes 000000000.png and so on. A file appears whole or not at all: it is written under a hidden name
/// and renamed, and a line of frames.jsonl that does not fit is taken back, with its image. A directory that
/// already holds a recording is continued.
class image_files final : public frame_sink {
 public:
  /// Makes the directory when it is not there. output_error when it can't be written to.
  image_files(std::filesystem::path directory, image_format format);
  ~image_files() override;
  image_files(const image_files&) = delete;
  image_files& operator=(const image_files&) = delete;

  std::uint64_t write(const stored_frame& frame, const std::stop_token& stop) override;

 private:
  std::size_t append_line(const std::string& line) const;

  std::filesystem::path directory_;
  image_format format_;
  int index_;  // descriptor of frames.jsonl
  std::uint64_t next_ = 0;
};

}  // namespace host

#endif
