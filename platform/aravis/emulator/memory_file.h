// A file without a place on disk, for a library that reads files only.
#ifndef PLATFORM_ARAVIS_EMULATOR_MEMORY_FILE_H
#define PLATFORM_ARAVIS_EMULATOR_MEMORY_FILE_H

#include <string>
#include <string_view>

namespace gvcam {

// Holds the text as long as it lives; it is gone however the process ends.
class memory_file {
 public:
  // Raises std::system_error when there is no memory or no descriptor left.
  explicit memory_file(std::string_view text);
  ~memory_file();
  memory_file(const memory_file&) = delete;
  memory_file& operator=(const memory_file&) = delete;

  // Where this process can open it, each time from the start.
  std::string path() const;

 private:
  int descriptor_;
};

}  // namespace gvcam

#endif
