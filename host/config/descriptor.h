// A file descriptor that closes itself.
#ifndef HOST_CONFIG_DESCRIPTOR_H
#define HOST_CONFIG_DESCRIPTOR_H

#include <sys/types.h>
#include <unistd.h>

#include <string_view>
#include <utility>

namespace host {

/// Owns a descriptor, or none (-1), as `open` and its sisters give it.
class descriptor {
 public:
  descriptor() = default;
  explicit descriptor(int number) : number_(number) {}
  ~descriptor() { close(); }
  descriptor(descriptor&& other) noexcept : number_(other.release()) {}
  descriptor& operator=(descriptor&& other) noexcept {
    close();
    number_ = other.release();
    return *this;
  }

  int get() const { return number_; }
  bool is_open() const { return number_ >= 0; }
  /// Hands it to another owner.
  int release() { return std::exchange(number_, -1); }
  /// False with errno set when the system reports an error only now, as some do for a full disk.
  bool close() { return number_ < 0 || ::close(release()) == 0; }

 private:
  int number_ = -1;
};

/// Writes what a file or pipe takes at once, after a wait of at most `patienceMs` for the reader of a pipe.
/// Gives the bytes written, 0 when there was no room, or -1 with errno set. A pipe that poll finds writable
/// takes PIPE_BUF bytes without blocking, whoever else holds it and however it was opened.
ssize_t write_some(int file, std::string_view bytes, int patienceMs);

}  // namespace host

#endif
