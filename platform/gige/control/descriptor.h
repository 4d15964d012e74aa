// A file descriptor that closes itself.
#ifndef PLATFORM_GIGE_CONTROL_DESCRIPTOR_H
#define PLATFORM_GIGE_CONTROL_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace gige {

class descriptor {
 public:
  explicit descriptor(int number = -1) : number_(number) {}
  descriptor(descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  descriptor& operator=(descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  descriptor(const descriptor&) = delete;
  descriptor& operator=(const descriptor&) = delete;
  ~descriptor() {
    if (number_ >= 0) {
      close(number_);
    }
  }

  // Negative when there is none.
  int get() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }

 private:
  int number_;
};

}  // namespace gige

#endif
