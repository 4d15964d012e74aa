#include "platform/gige/description/description_source.h"

#include <GenApi/GenApi.h>
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>

#include "platform/gige/description/http.h"

namespace gige {
namespace {

namespace fs = std::filesystem;
using clock = std::chrono::steady_clock;

constexpr std::size_t longestUrl = 512;  // the registers have no more
constexpr std::size_t piece = 512;       // bytes of a read from the camera: one command of the protocol

[[noreturn]] void refuse(std::string_view url, const std::string& what) {
  throw description_error("the description's URL '" + std::string(url) + "' " + what);
}

bool is_printable(char c) {
  return c > ' ' && c < '\x7f';
}

// ---- Reading URLs

// Removes and returns the text before the separator, or all of it.
std::string_view take_until(std::string_view& text, std::string_view separator) {
  const std::size_t end = text.find(separator);
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + separator.size());
  return taken;
}

template <class Number>
std::optional<Number> number(std::string_view text, int base) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, base);
  return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

std::optional<std::uint64_t> hexadecimal(std::string_view text) {
  const bool prefixed = text.starts_with("0x") || text.starts_with("0X");
  return number<std::uint64_t>(text.substr(prefixed ? 2 : 0), 16);
}

void skip_slashes(std::string_view& text, std::size_t most) {
  for (; most > 0 && text.starts_with('/'); --most) {
    text.remove_prefix(1);
  }
}

// "camera.zip;1d000;3a2f", perhaps with "?SchemaVersion=1.0.0" behind it.
description_source source_on_camera(std::string_view url, std::string_view rest) {
  skip_slashes(rest, rest.size());
  std::string_view places = take_until(rest, "?");
  const std::string_view name = take_until(places, ";");
  const auto address = hexadecimal(take_until(places, ";"));
  const auto size = hexadecimal(places);
  if (!address || !size) {
    refuse(url, "is not of the form Local:NAME;ADDRESS;SIZE, both hexadecimal");
  }
  if (*size == 0 || *size > largestDescription) {
    refuse(url,
           "is of " + std::to_string(*size) + " bytes, right is 1 to " + std::to_string(largestDescription));
  }
  if (*address > UINT32_MAX - *size) {
    refuse(url, "is beyond the camera's 32-bit addresses");
  }
  return {.where = description_source::place::camera,
          .path = std::string(name),
          .address = *address,
          .size = *size};
}

// "///directory/camera.xml"
description_source source_in_file(std::string_view url, std::string_view rest) {
  skip_slashes(rest, 2);
  if (rest.empty()) {
    refuse(url, "names no file, right is file:///DIRECTORY/NAME");
  }
  return {.where = description_source::place::file, .path = std::string(rest)};
}

// "//192.168.5.10:8080/camera.zip"
description_source source_by_http(std::string_view url, std::string_view rest) {
  skip_slashes(rest, 2);
  const std::size_t end = std::min(rest.find('/'), rest.size());
  std::string_view authority = rest.substr(0, end);
  const std::string host(take_until(authority, ":"));
  const auto port =
      authority.empty() ? std::optional<std::uint16_t>(80) : number<std::uint16_t>(authority, 10);
  in_addr address{};
  if (inet_pton(AF_INET, host.c_str(), &address) != 1 || !port) {
    refuse(url, "is not of the form http://IPV4-ADDRESS/NAME");
  }
  return {.where = description_source::place::http,
          .path = end == rest.size() ? "/" : std::string(rest.substr(end)),
          .host = ntohl(address.s_addr),
          .port = *port};
}

// ---- Fetching

std::string read_camera(const description_source& from, register_port& camera, clock::time_point deadline) {
  std::string text(from.size, '\0');
  const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(text.data()), text.size());
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    if (clock::now() > deadline) {
      throw description_error("the camera sent " + std::to_string(at) + " of " + std::to_string(from.size) +
                              " bytes of its description before time was up");
    }
    camera.read(from.address + at, bytes.subspan(at, std::min(piece, bytes.size() - at)));
  }
  return text;
}

bool is_below(const fs::path& directory, const fs::path& file) {
  return std::mismatch(directory.begin(), directory.end(), file.begin(), file.end()).first == directory.end();
}

// The path without symbolic links. Raises description_error for one outside of the directory.
fs::path allowed_file(const std::string& path, const std::string& directory) {
  if (directory.empty()) {
    throw description_error("the camera's description is the file '" + path +
                            "': no directory of descriptions is allowed (GIGE_DESCRIPTION_DIR)");
  }
  std::error_code error;
  const fs::path home = fs::canonical(directory, error);
  fs::path file = error ? fs::path() : fs::canonical(home / path, error);
  if (error) {
    throw description_error("the camera's description '" + path + "' in '" + directory +
                            "': " + error.message());
  }
  if (!is_below(home, file) || !fs::is_regular_file(file, error)) {
    throw description_error("the camera's description '" + path + "' is no file in '" + directory +
                            "', the directory that is allowed (GIGE_DESCRIPTION_DIR)");
  }
  return file;
}

std::string read_file(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text(largestDescription + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (file.bad() || !file.is_open()) {
    throw description_error("the description '" + path.string() + "' cannot be read");
  }
  if (text.size() > largestDescription) {
    throw description_error("the description '" + path.string() + "' has more than " +
                            std::to_string(largestDescription) + " bytes");
  }
  return text;
}

std::string get_by_http(const description_source& from, const source_access& allowed,
                        clock::time_point deadline) {
  if (from.host != allowed.camera) {
    throw description_error("the description is on another host than the camera, which is not asked");
  }
  return http_get({.host = from.host,
                   .port = from.port,
                   .path = from.path,
                   .most = largestDescription,
                   .deadline = deadline,
                   .cancelled = allowed.cancelled});
}

}  // namespace

description_source parse_source(std::string_view text) {
  struct scheme {
    std::string_view name;
    description_source (*read)(std::string_view url, std::string_view rest);
  };
  static constexpr std::array<scheme, 3> schemes = {
      {{"local", source_on_camera}, {"file", source_in_file}, {"http", source_by_http}}};

  const std::string_view url = text.substr(0, text.find('\0'));
  if (url.size() > longestUrl || !std::all_of(url.begin(), url.end(), is_printable)) {
    throw description_error("the description's URL is too long, or holds spaces or control characters");
  }
  std::string_view rest = url;
  std::string name(take_until(rest, ":"));
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
  const auto* const known =
      std::find_if(schemes.begin(), schemes.end(), [&](const scheme& each) { return each.name == name; });
  if (known == schemes.end()) {
    refuse(url, "begins with none of Local:, file: and http:");
  }
  return known->read(url, rest);
}

std::string fetch(const description_source& from, register_port& camera, const source_access& allowed) {
  const clock::time_point deadline = clock::now() + allowed.patience;
  switch (from.where) {
    case description_source::place::file:
      return read_file(allowed_file(from.path, allowed.directory));
    case description_source::place::http:
      return get_by_http(from, allowed, deadline);
    case description_source::place::camera:
      break;
  }
  return read_camera(from, camera, deadline);
}

std::string load_description(std::span<const std::string> urls, register_port& camera,
                             const source_access& allowed) {
  std::string reasons;
  const auto failed = [&](const char* reason) {
    reasons += (reasons.empty() ? "" : "; ") + std::string(reason);
  };
  for (const std::string& url : urls) {
    try {
      if (!url.empty() && url.front() != '\0') {
        return unpack(fetch(parse_source(url), camera, allowed));
      }
    } catch (const description_error& error) {
      failed(error.what());
    } catch (const GenICam::AccessException& error) {
      failed(error.what());
    } catch (const GenICam::RuntimeException& error) {
      failed(error.what());
    }
  }
  throw description_error(reasons.empty() ? "the camera does not say where its description is" : reasons);
}

}  // namespace gige
