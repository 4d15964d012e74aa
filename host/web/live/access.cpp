#include "host/web/live/access.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace host {
namespace {

constexpr std::string_view kBearer = "Bearer ";
constexpr const char* kNeedsToken =
    "this needs the token of the link that was printed at start, as 'Authorization: Bearer TOKEN'";
constexpr const char* kReadOnly = "nothing can be changed here: the program runs with --web-read-only";
constexpr std::string_view kTokenCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";  // 64: a byte's six lowest bits

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return text;
}

// "name:port", "[address]:port" and the like without the port and the brackets.
std::string host_of(const std::string& text) {
  if (text.starts_with('[')) {
    return lower(text.substr(1, text.find(']') - 1));
  }
  return lower(text.substr(0, text.find(':')));
}

std::string unknown_host_text(const web_request& request) {
  return fmt::format("this server does not answer to the name '{}'; --web-host adds one",
                     host_of(request.header("host")).substr(0, 64));
}

// Takes as long for any text of the same length, so that the time tells nothing of the secret.
bool is_same_secret(std::string_view given, std::string_view secret) {
  unsigned difference = given.size() == secret.size() ? 0 : 1;
  for (std::size_t at = 0; at < given.size(); ++at) {
    difference |= static_cast<unsigned>(given[at] ^ secret[at % secret.size()]);
  }
  return difference == 0;
}

bool is_token_character(char letter) {
  return kTokenCharacters.find(letter) != std::string_view::npos || letter == '.' || letter == '~';
}

std::string address_text_of(const sockaddr& address) {
  std::array<char, NI_MAXHOST> text{};
  const socklen_t size = address.sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  const bool isText = getnameinfo(&address, size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0;
  return isText ? text.data() : "";
}

void append_own_addresses(std::vector<std::string>& to) {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) {
    return;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> all(first, freeifaddrs);
  for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
    const bool isIp = each->ifa_addr != nullptr &&
                      (each->ifa_addr->sa_family == AF_INET || each->ifa_addr->sa_family == AF_INET6);
    if (isIp) {
      to.push_back(lower(address_text_of(*each->ifa_addr)));
    }
  }
}

}  // namespace

bool access_rules::has_token(const web_request& request) const {
  const std::string given = request.header("authorization");
  return given.starts_with(kBearer) && is_same_secret(given.substr(kBearer.size()), settings_.token);
}

bool access_rules::is_known_host(const web_request& request) const {
  const std::string name = host_of(request.header("host"));
  return std::find(settings_.hosts.begin(), settings_.hosts.end(), name) != settings_.hosts.end();
}

std::optional<access_refusal> access_rules::refuse(const web_request& request, access_need need) const {
  if (need == access_need::open) {
    return std::nullopt;
  }
  if (request.body.size() > kBodyMax) {
    return access_refusal{413, fmt::format("a body has at most {} bytes", kBodyMax)};
  }
  const bool isTrusted = has_token(request);
  const bool needsToken = need == access_need::change || !settings_.isLoopback;
  if (!isTrusted && (needsToken || !request.header("authorization").empty())) {
    return access_refusal{401, kNeedsToken};
  }
  if (!is_known_host(request) && (!isTrusted || need == access_need::change)) {
    return access_refusal{403, unknown_host_text(request)};
  }
  return need == access_need::change ? refuse_change(request) : std::nullopt;
}

std::optional<access_refusal> access_rules::refuse_change(const web_request& request) const {
  if (settings_.isReadOnly) {
    return access_refusal{403, kReadOnly};
  }
  const std::string origin = lower(request.header("origin"));
  const std::string own = (settings_.isTls ? "https://" : "http://") + lower(request.header("host"));
  if (!origin.empty() && origin != own) {
    return access_refusal{403, "a page of another origin may not change anything"};
  }
  if (!lower(request.header("content-type")).starts_with("application/json")) {
    return access_refusal{415, "a change is JSON, with 'Content-Type: application/json'"};
  }
  return std::nullopt;
}

std::string access_rules::look_only_reason(const web_request& request) const {
  if (settings_.isReadOnly) {
    return kReadOnly;
  }
  if (!has_token(request)) {
    return kNeedsToken;
  }
  return is_known_host(request) ? "" : unknown_host_text(request);
}

std::string random_token() {
  std::array<unsigned char, 32> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error(fmt::format("no random numbers for a token: {}", std::strerror(errno)));
  }
  std::string token;
  for (const unsigned char byte : bytes) {
    token += kTokenCharacters[byte % kTokenCharacters.size()];
  }
  return token;
}

std::string token_of_file(const std::string& path) {
  constexpr std::size_t kFileMax = 4096;
  constexpr std::size_t kLeast = 16;
  constexpr std::size_t kMost = 256;
  std::ifstream file(path);
  std::string text(kFileMax + 1, '\0');
  if (!file || !file.read(text.data(), static_cast<std::streamsize>(text.size())).eof()) {
    throw std::runtime_error(fmt::format(
        "--web-token-file: {} must be a readable file of at most {} bytes with the token", path, kFileMax));
  }
  text.resize(static_cast<std::size_t>(file.gcount()));
  constexpr const char* kSpace = " \t\r\n";
  const auto begin = std::min(text.find_first_not_of(kSpace), text.size());
  std::string token = text.substr(begin, text.find_last_not_of(kSpace) + 1 - begin);
  if (token.size() < kLeast || token.size() > kMost ||
      !std::all_of(token.begin(), token.end(), is_token_character)) {
    throw std::runtime_error(fmt::format(
        "--web-token-file: {} must have a token of {} to {} letters, digits, '-', '_', '.' or '~'", path,
        kLeast, kMost));
  }
  return token;
}

bool is_loopback(const std::string& address) {
  in_addr v4{};
  return address == "::1" ||
         (inet_pton(AF_INET, address.c_str(), &v4) == 1 && ntohl(v4.s_addr) >> 24 == IN_LOOPBACKNET);
}

std::vector<std::string> host_names(const std::string& address, const std::vector<std::string>& more) {
  std::vector<std::string> names = {lower(address)};
  if (address == "0.0.0.0" || address == "::") {
    append_own_addresses(names);
  }
  if (is_loopback(address) || names.size() > 1) {
    names.emplace_back("localhost");
  }
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) == 0) {
    names.push_back(lower(name.data()));
  }
  std::transform(more.begin(), more.end(), std::back_inserter(names), lower);
  return names;
}

}  // namespace host
