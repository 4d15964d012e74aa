// Frames as image files in a directory, with a line about each in frames.jsonl.
#ifndef HOST_OUTPUTS_IMAGE_FILES_H
#define HOST_OUTPUTS_IMAGE_FILES_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "host/outputs/frame_index.h"
#include "host/outputs/frame_writer.h"
#include "host/outputs/recording_folder.h"

namespace host {

enum class image_format : std::uint8_t { png, pgm, raw };

/// The file name extension, which is also the format's name on the command line.
const char* format_name(image_format format);

/// A frame as the bytes of a file. raw: the pixels alone.
std::vector<std::uint8_t> encode(const stored_frame& frame, image_format format);

/// How much of a camera's recording is kept. What is beyond goes, oldest first; without limits everything
/// stays.
struct keep_limits {
  std::optional<std::chrono::microseconds> age = std::nullopt;  ///< images that arrived longer ago go
  std::optional<std::uint64_t> bytes = std::nullopt;            ///< of all images together
  std::optional<std::uint64_t> freeBytes = std::nullopt;        ///< that the file system is to have left
};

/// Writes 000000000.png and so on into a folder, with a line about each in frames.jsonl. An image is there
/// whole or not at all, also after a power cut, which costs at most the images of the last second. No file is
/// ever overwritten: a folder that already holds a recording is continued. A folder that is gone, as with a
/// disk that was unplugged, is not made again, as it would be on the disk below. Once it is back, the
/// recording goes on.
class image_files final : public frame_sink {
 public:
  /// output_error when the folder can't be recorded into.
  image_files(std::filesystem::path folder, image_format format, const keep_limits& keep);

  std::uint64_t write(const stored_frame& frame, const std::stop_token& stop) override;
  void settle() override;

 private:
  struct recording {
    recording(const std::filesystem::path& path, folder_origin origin, bool isCounting);

    recording_folder folder;
    frame_index index;
    std::uint64_t next;        // number of the next image
    std::uint64_t imageBytes;  // of all images; 0 without a limit for them
    bool isSettled = true;     // all names and lines are on the disk
  };

  std::uint64_t add(const stored_frame& frame);
  void reopen_if_replaced();
  void make_room(std::uint64_t bytes);
  bool is_beyond(const indexed_frame& oldest, std::uint64_t bytes) const;

  std::filesystem::path path_;
  image_format format_;
  keep_limits keep_;
  std::optional<recording> recording_;  // none while a folder that came back can't be opened
  bool hasFailed_ = false;              // the frame before
};

}  // namespace host

#endif
