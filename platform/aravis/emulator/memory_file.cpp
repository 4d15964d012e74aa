#include "platform/aravis/emulator/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace gvcam {

memory_file::memory_file(std::string_view text) : descriptor_(memfd_create("gvcam", MFD_CLOEXEC)) {
  if (descriptor_ < 0 || write(descriptor_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::system_error(errno, std::generic_category(), "cannot hold the GenICam description in memory");
  }
}

memory_file::~memory_file() {
  close(descriptor_);
}

std::string memory_file::path() const {
  return "/proc/self/fd/" + std::to_string(descriptor_);
}

}  // namespace gvcam
