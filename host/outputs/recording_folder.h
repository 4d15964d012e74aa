// The folder of one camera's recording: its files are there whole or not at all, also after a power cut.
#ifndef HOST_OUTPUTS_RECORDING_FOLDER_H
#define HOST_OUTPUTS_RECORDING_FOLDER_H

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "host/config/descriptor.h"

namespace host {

/// A serial number as one component of a path: whatever is not a letter, digit, '-', '_' or '.', and a '.' in
/// front, stands as %XX. Two serial numbers never give the same name.
std::string file_name_of(const std::string& serial);

/// Whether a recording's folder may be made where it is not there.
enum class folder_origin : std::uint8_t { made, existing };

/// Locked against other processes as long as it lives. Used by one thread. Paths are resolved once, when it
/// is opened: a link that is put in its place later is not followed. Its functions raise output_error.
class recording_folder {
 public:
  /// Opens the folder; with `made`, it and those above it are made where they are not there. It must be no
  /// link, and no other process may be recording into it. What a process that was killed left half-written is
  /// removed.
  explicit recording_folder(std::filesystem::path path, folder_origin origin = folder_origin::made);

  const std::filesystem::path& path() const { return path_; }

  /// Writes a file whose data is on the disk before its name appears. False, without any change, when there
  /// is a file of that name.
  bool add(const std::string& name, std::span<const std::uint8_t> bytes);
  /// As `add`, in place of the file of that name.
  void replace(const std::string& name, descriptor file);
  /// Opens a file of the folder; `flags` as for `open`. Not open, with errno set, when that fails.
  descriptor open(const std::string& name, int flags) const;
  /// A hidden file that `replace` gives its name; one left from before is emptied.
  descriptor open_partial(const std::string& name) const;
  /// Removes a file. False when that fails; true when there is no such file.
  bool remove(const std::string& name) noexcept;
  bool has(const std::string& name) const noexcept;
  /// Whether the path now names another folder than the one that is open, as after a disk was mounted again.
  bool is_replaced() const noexcept;
  /// Puts the names of the folder on the disk.
  void sync();
  /// Bytes that the file system has left for a user without privileges.
  std::uint64_t free_bytes() const;
  /// The number after the highest that a file name starts with; 0 without any.
  std::uint64_t next_number() const;

 private:
  [[noreturn]] void fail(const std::string& name, int error) const;
  void make() const;
  void lock();
  void remove_partials();

  std::filesystem::path path_;
  descriptor folder_;
  descriptor lock_;
};

/// Writes all of it. False with errno set when not everything could be written.
bool write_all(int file, const void* data, std::size_t size);

}  // namespace host

#endif
