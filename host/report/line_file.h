// A file or pipe that grows by whole lines.
#ifndef HOST_REPORT_LINE_FILE_H
#define HOST_REPORT_LINE_FILE_H

#include <string>

#include "host/config/descriptor.h"

namespace host {

/// Appends lines to a file, a named pipe or a device, and never waits for it. A line that does not fit is
/// taken back from a file; its rest goes ahead of the next line of a pipe. Used by one thread.
class line_file {
 public:
  /// Opens it, and takes away half a JSON object that a power cut left at its end. output_error when it can't
  /// be opened; a pipe without a reader is opened with the first line that finds one.
  explicit line_file(std::string path);

  /// Opens the path anew with the next line, as the file may have been moved away.
  void reopen();
  /// Appends a line, to which it adds the newline. output_error when that fails.
  void write(const std::string& line);

 private:
  void open();
  void mend();
  void send(const std::string& text);

  std::string path_;
  descriptor file_;
  bool isRegular_ = false;
  std::string rest_;  // of a line that a pipe took in part
};

}  // namespace host

#endif
