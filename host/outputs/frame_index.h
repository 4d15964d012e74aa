// frames.jsonl: one line about each image of a recording, oldest first.
#ifndef HOST_OUTPUTS_FRAME_INDEX_H
#define HOST_OUTPUTS_FRAME_INDEX_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "host/outputs/recording_folder.h"

namespace host {

/// A line, as far as a recording is continued and limited by it.
struct indexed_frame {
  std::uint64_t number = 0;     ///< of the image, from 0
  std::string file;             ///< its name in the folder
  std::uint64_t arrivalUs = 0;  ///< realtime clock, microseconds
  std::uint64_t bytes = 0;      ///< of the image
};

/// Used by one thread; its functions raise output_error.
class frame_index {
 public:
  /// Opens the index of a folder, which must outlive it. What a power cut left at its end is taken away: half
  /// a line, and lines of images that did not reach the disk.
  explicit frame_index(recording_folder& folder);

  /// Appends a line (with its newline), or nothing where it does not fit.
  void append(const std::string& line);
  /// The number after the last line's; 0 without any.
  std::uint64_t next_number() const;
  /// Bytes of all images that are there. Reads the whole index.
  std::uint64_t image_bytes() const;
  /// The first line that was not dropped and whose image is there.
  std::optional<indexed_frame> oldest();
  /// Counts the oldest line as dropped. Lines that were dropped leave the file together, once they are half
  /// of it.
  void drop_oldest();
  /// Puts all lines on the disk.
  void sync();

 private:
  void mend();
  off_t size() const;
  std::string read(off_t from, off_t to) const;
  std::string line_at(off_t start) const;
  std::string last_line() const;
  void cut(off_t size);
  void compact();
  [[noreturn]] void fail(int error) const;

  recording_folder& folder_;
  descriptor file_;
  off_t oldestAt_ = 0;  // where the first line that was not dropped starts
};

}  // namespace host

#endif
