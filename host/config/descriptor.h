// A file descriptor that closes itself.
#ifndef HOST_CONFIG_DESCRIPTOR_H
#define HOST_CONFIG_DESCRIPTOR_H

#include <unistd.h>

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

}  // namespace host

#endif
