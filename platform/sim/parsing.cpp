#include "platform/sim/parsing.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>

#include "platform/gev/value.h"

namespace sim {
namespace {

constexpr std::string_view blanks = " \t\r";

template <class Number>
Number number_within(const std::string& what, const std::string& text, Number min, Number max) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  const bool right = error == std::errc() && stop == end && number >= min && number <= max;
  if (!right) {
    throw std::invalid_argument(what + " '" + text + "' is not a number from " + gev::to_text(min) + " to " +
                                gev::to_text(max));
  }
  return number;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(blanks);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string> split(std::string_view text, std::string_view separators) {
  std::vector<std::string> pieces;
  while (!text.empty()) {
    const auto end = std::min(text.find_first_of(separators), text.size());
    if (const auto piece = trimmed(text.substr(0, end)); !piece.empty()) {
      pieces.emplace_back(piece);
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return pieces;
}

std::vector<std::string> statements(std::string_view text) {
  std::vector<std::string> all;
  for (const std::string& line : split(text, "\n")) {
    for (std::string& statement : split(line.substr(0, line.find('#')), ";")) {
      all.push_back(std::move(statement));
    }
  }
  return all;
}

double to_double(const std::string& what, const std::string& text, double min, double max) {
  return number_within(what, text, min, max);
}

std::int64_t to_int(const std::string& what, const std::string& text, std::int64_t min, std::int64_t max) {
  return number_within(what, text, min, max);
}

std::size_t one_of(const std::string& what, const std::string& text, const std::vector<std::string>& right) {
  const auto found = std::find(right.begin(), right.end(), text);
  if (found == right.end()) {
    throw std::invalid_argument(what + " '" + text + "' is not one of " +
                                listed(right, [](const std::string& word) { return word; }));
  }
  return static_cast<std::size_t>(found - right.begin());
}

}  // namespace sim
