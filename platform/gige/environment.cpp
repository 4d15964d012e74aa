#include "platform/gige/environment.h"

#include <charconv>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "platform/gige/control/addresses.h"

namespace gige {
namespace {

std::string variable(const char* name) {
  const char* const text = std::getenv(name);
  return text == nullptr ? "" : text;
}

std::vector<std::string> words_of(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream rest(text);
  for (std::string word; std::getline(rest, word, ',');) {
    if (!word.empty()) {
      words.push_back(word);
    }
  }
  return words;
}

[[noreturn]] void refuse(const char* name, const std::string& value, const std::string& right) {
  throw std::invalid_argument(std::string(name) + ": '" + value + "' is not " + right);
}

std::uint32_t number_of(const char* name, std::uint32_t otherwise, std::uint32_t min, std::uint32_t max) {
  const std::string text = variable(name);
  if (text.empty()) {
    return otherwise;
  }
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < min || number > max) {
    refuse(name, text, "a whole number from " + std::to_string(min) + " to " + std::to_string(max));
  }
  return number;
}

std::vector<std::uint32_t> addresses_of(const char* name) {
  std::vector<std::uint32_t> addresses;
  for (const std::string& word : words_of(variable(name))) {
    const auto address = parse_address(word);
    if (!address) {
      refuse(name, word, "an IPv4 address such as 192.168.0.10");
    }
    addresses.push_back(*address);
  }
  return addresses;
}

transport_choice transport_of(const char* name) {
  const std::string text = variable(name);
  if (text.empty() || text == "auto") {
    return transport_choice::automatic;
  }
  if (text == "udp") {
    return transport_choice::udp;
  }
  if (text == "ring") {
    return transport_choice::packet_ring;
  }
  refuse(name, text, "auto, udp or ring");
}

}  // namespace

environment read_environment() {
  environment read;
  read.interfaces = words_of(variable("GIGE_INTERFACES"));
  read.addresses = addresses_of("GIGE_ADDRESSES");
  read.discovery = std::chrono::milliseconds(
      number_of("GIGE_DISCOVERY_MS", static_cast<std::uint32_t>(read.discovery.count()), 1, 10'000));
  read.transport = transport_of("GIGE_TRANSPORT");
  read.socketBufferBytes = number_of("GIGE_SOCKET_BUFFER", read.socketBufferBytes, 65'536, 1U << 30);
  read.descriptionDirectory = variable("GIGE_DESCRIPTION_DIR");
  return read;
}

}  // namespace gige
