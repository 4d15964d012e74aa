#include "platform/gige/description/archive.h"

#include <zip.h>

#include <array>
#include <memory>
#include <string_view>

namespace gige {
namespace {

constexpr std::string_view beginOfArchive = "PK";
constexpr zip_int64_t mostFiles = 64;  // cameras have one

struct discard {
  void operator()(zip_t* archive) const { zip_discard(archive); }
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};
using zip_archive = std::unique_ptr<zip_t, discard>;
using zip_content = std::unique_ptr<zip_file_t, discard>;

[[noreturn]] void refuse(const std::string& what) {
  throw description_error("the description's zip archive " + what);
}

zip_archive open(const std::string& bytes) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* const source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
  zip_archive archive(source == nullptr ? nullptr : zip_open_from_source(source, ZIP_RDONLY, &error));
  if (archive == nullptr) {
    const std::string reason = zip_error_strerror(&error);
    zip_error_fini(&error);
    zip_source_free(source);
    refuse("cannot be opened: " + reason);
  }
  zip_error_fini(&error);
  return archive;
}

bool is_xml(std::string_view name) {
  constexpr std::size_t size = 4;
  const std::string_view end = name.size() < size ? name : name.substr(name.size() - size);
  return end == ".xml" || end == ".XML" || end == ".Xml";
}

// The first file with that ending.
zip_uint64_t find_xml(zip_t* archive) {
  const zip_int64_t count = zip_get_num_entries(archive, 0);
  if (count > mostFiles) {
    refuse("holds " + std::to_string(count) + " files, right is one");
  }
  for (zip_int64_t at = 0; at < count; ++at) {
    const char* const name = zip_get_name(archive, static_cast<zip_uint64_t>(at), 0);
    if (name != nullptr && is_xml(name)) {
      return static_cast<zip_uint64_t>(at);
    }
  }
  refuse("holds no file NAME.xml");
}

// Counts the bytes as they come: the declared size may be wrong.
std::string read(zip_t* archive, zip_uint64_t file) {
  const zip_content content(zip_fopen_index(archive, file, 0));
  if (content == nullptr) {
    refuse(std::string("cannot be read: ") + zip_strerror(archive));
  }
  std::string text;
  std::array<char, 65'536> piece{};
  zip_int64_t size = 0;
  while ((size = zip_fread(content.get(), piece.data(), piece.size())) > 0) {
    text.append(piece.data(), static_cast<std::size_t>(size));
    if (text.size() > largestDescription) {
      refuse("holds more than " + std::to_string(largestDescription) + " bytes");
    }
  }
  if (size < 0) {
    refuse(std::string("is damaged: ") + zip_file_strerror(content.get()));
  }
  return text;
}

}  // namespace

std::string unpack(std::string transferred) {
  if (std::string_view(transferred).starts_with(beginOfArchive)) {
    const zip_archive archive = open(transferred);
    return read(archive.get(), find_xml(archive.get()));
  }
  transferred.erase(transferred.find_last_not_of('\0') + 1);
  return transferred;
}

}  // namespace gige
