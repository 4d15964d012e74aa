#include "host/outputs/recording_folder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <system_error>
#include <utility>

#include "host/outputs/frame_writer.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLock = ".lock";
constexpr std::string_view kPartial = ".part";
constexpr mode_t kFileMode = 0644;
constexpr mode_t kFolderMode = 0755;

std::string partial_name(const std::string& name) {
  return fmt::format(".{}{}", name, kPartial);
}

// Every entry's name, without any exception but for memory: a disk may fail at any of them.
template <class Visit>
void each_name(const fs::path& folder, Visit visit) {
  std::error_code error;
  for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator();
       at.increment(error)) {
    visit(at->path().filename().string());
  }
}

}  // namespace

std::string file_name_of(const std::string& serial) {
  std::string name;
  for (const char letter : serial) {
    const auto code = static_cast<unsigned char>(letter);
    const bool isPlain = code < 0x80 && (std::isalnum(code) != 0 || letter == '-' || letter == '_' ||
                                         (letter == '.' && !name.empty()));
    name += isPlain ? std::string(1, letter) : fmt::format("%{:02X}", code);
  }
  return name;
}

bool write_all(int file, const void* data, std::size_t size) {
  const auto* from = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = ::write(file, from, size);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    from += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

recording_folder::recording_folder(fs::path path, folder_origin origin) : path_(std::move(path)) {
  if (origin == folder_origin::made) {
    make();
  }
  folder_ = descriptor(::open(path_.c_str(), O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder_.is_open()) {
    throw output_error(
        errno == ELOOP || errno == ENOTDIR
            ? fmt::format("{} is no folder of its own (links are not followed)", path_.string())
            : fmt::format("{} can't be opened: {}", path_.string(), write_failure(errno)));
  }
  lock();
  remove_partials();
}

void recording_folder::make() const {
  std::error_code error;
  fs::create_directories(path_.parent_path(), error);
  if (error) {
    throw output_error(
        fmt::format("{} can't be made: {}", path_.parent_path().string(), write_failure(error.value())));
  }
  if (mkdir(path_.c_str(), kFolderMode) == 0) {
    const descriptor parent(::open(path_.parent_path().c_str(), O_DIRECTORY | O_CLOEXEC));
    fsync(parent.get());  // the recording itself tells when the disk fails
  } else if (errno != EEXIST) {
    throw output_error(fmt::format("{} can't be made: {}", path_.string(), write_failure(errno)));
  }
}

void recording_folder::lock() {
  lock_ = open(kLock, O_RDWR | O_CREAT);
  if (!lock_.is_open()) {
    fail(kLock, errno);
  }
  if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
    throw output_error(errno == EWOULDBLOCK
                           ? fmt::format("{} is being recorded into by another process", path_.string())
                           : fmt::format("{} can't be locked: {}", path_.string(), write_failure(errno)));
  }
}

void recording_folder::remove_partials() {
  each_name(path_, [this](const std::string& name) {
    if (name.front() == '.' && name.ends_with(kPartial)) {
      remove(name);
    }
  });
}

descriptor recording_folder::open(const std::string& name, int flags) const {
  return descriptor(openat(folder_.get(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, kFileMode));
}

descriptor recording_folder::open_partial(const std::string& name) const {
  descriptor file = open(partial_name(name), O_RDWR | O_CREAT | O_TRUNC);
  if (!file.is_open()) {
    fail(name, errno);
  }
  return file;
}

bool recording_folder::add(const std::string& name, std::span<const std::uint8_t> bytes) {
  if (has(name)) {
    return false;
  }
  descriptor file = open_partial(name);
  if (!write_all(file.get(), bytes.data(), bytes.size())) {
    const int error = errno;
    remove(partial_name(name));
    fail(name, error);
  }
  replace(name, std::move(file));
  return true;
}

void recording_folder::replace(const std::string& name, descriptor file) {
  const std::string partial = partial_name(name);
  if (fdatasync(file.get()) != 0 || !file.close() ||
      renameat(folder_.get(), partial.c_str(), folder_.get(), name.c_str()) != 0) {
    const int error = errno;
    remove(partial);
    fail(name, error);
  }
}

bool recording_folder::remove(const std::string& name) noexcept {
  return unlinkat(folder_.get(), name.c_str(), 0) == 0 || errno == ENOENT;
}

bool recording_folder::has(const std::string& name) const noexcept {
  return faccessat(folder_.get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

bool recording_folder::is_replaced() const noexcept {
  struct stat opened {};
  struct stat named {};
  return fstat(folder_.get(), &opened) == 0 && lstat(path_.c_str(), &named) == 0 && S_ISDIR(named.st_mode) &&
         (opened.st_dev != named.st_dev || opened.st_ino != named.st_ino);
}

void recording_folder::sync() {
  if (fsync(folder_.get()) != 0) {
    throw output_error(fmt::format("{} can't be put on the disk: {}", path_.string(), write_failure(errno)));
  }
}

std::uint64_t recording_folder::free_bytes() const {
  struct statvfs about {};
  if (fstatvfs(folder_.get(), &about) != 0) {
    throw output_error(
        fmt::format("the space left for {} is not known: {}", path_.string(), write_failure(errno)));
  }
  return std::uint64_t{about.f_bavail} * about.f_frsize;
}

std::uint64_t recording_folder::next_number() const {
  std::uint64_t next = 0;
  each_name(path_, [&](const std::string& name) {
    std::uint64_t number = 0;
    if (std::from_chars(name.data(), name.data() + name.size(), number).ec == std::errc()) {
      next = std::max(next, number + 1);
    }
  });
  return next;
}

void recording_folder::fail(const std::string& name, int error) const {
  throw output_error(fmt::format("{} can't be written: {}", (path_ / name).string(), write_failure(error)));
}

}  // namespace host
