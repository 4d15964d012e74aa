#include "platform/gev/value.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <system_error>

#include "platform/gev/exceptions.h"

namespace gev {
namespace {

template <class Number, class... Format>
std::optional<Number> whole_text_as(std::string_view text, Format... format) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, format...);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<std::int64_t> parse_integer(std::string_view text) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  return hexadecimal ? whole_text_as<std::int64_t>(text.substr(2), 16) : whole_text_as<std::int64_t>(text);
}

std::optional<std::int64_t> parse_boolean(std::string_view text) {
  if (text == "1" || text == "true" || text == "True") {
    return 1;
  }
  if (text == "0" || text == "false" || text == "False") {
    return 0;
  }
  return std::nullopt;
}

// The shortest text that reads back exactly; plain digits as long as that stays readable.
std::string number_text(double number) {
  const double size = std::fabs(number);
  const bool plain = number == 0 || (size >= 1e-5 && size < 1e15);
  std::array<char, 64> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), number,
                                 plain ? std::chars_format::fixed : std::chars_format::scientific);
  return {text.data(), end.ptr};
}

std::int64_t nearest_integer(double number) {
  constexpr double limit = 9223372036854774784.0;  // the largest double below 2^63
  if (std::isnan(number)) {
    raise<GenICam::InvalidArgumentException>("not a number where an integer is needed");
  }
  return std::llround(std::clamp(number, -limit, limit));
}

[[noreturn]] void refuse(const std::string& feature, std::string_view text, const std::string& right) {
  raise<GenICam::InvalidArgumentException>(feature + ": value '" + std::string(text) + "' is not " + right);
}

template <class Parsed>
value parsed_or_refused(const std::string& feature, std::string_view text, const Parsed& parsed,
                        const char* right) {
  if (!parsed) {
    refuse(feature, text, right);
  }
  return *parsed;
}

}  // namespace

std::int64_t to_integer(const value& from) {
  if (const auto* integer = std::get_if<std::int64_t>(&from)) {
    return *integer;
  }
  return nearest_integer(to_number(from));
}

double to_number(const value& from) {
  if (const auto* integer = std::get_if<std::int64_t>(&from)) {
    return static_cast<double>(*integer);
  }
  if (const auto* number = std::get_if<double>(&from)) {
    return *number;
  }
  const auto& text = std::get<std::string>(from);
  const auto number = whole_text_as<double>(text);
  if (!number) {
    raise<GenICam::InvalidArgumentException>("'" + text + "' where a number is needed");
  }
  return *number;
}

std::string to_text(const value& from) {
  if (const auto* integer = std::get_if<std::int64_t>(&from)) {
    return std::to_string(*integer);
  }
  if (const auto* number = std::get_if<double>(&from)) {
    return number_text(*number);
  }
  return std::get<std::string>(from);
}

std::string format(value_kind kind, const std::vector<entry>& entries, const value& from) {
  if (kind == value_kind::enumeration) {
    if (const entry* current = find_entry(entries, to_integer(from))) {
      return current->name;
    }
  }
  return to_text(from);
}

value parse(const std::string& feature, value_kind kind, const std::vector<entry>& entries,
            std::string_view text) {
  switch (kind) {
    case value_kind::integer:
      return parsed_or_refused(feature, text, parse_integer(text), "an integer");
    case value_kind::floating:
      return parsed_or_refused(feature, text, whole_text_as<double>(text), "a number");
    case value_kind::boolean:
      return parsed_or_refused(feature, text, parse_boolean(text), "one of 1, 0, true, false, True, False");
    case value_kind::enumeration:
      if (const entry* named = find_entry(entries, text)) {
        return named->number;
      }
      refuse(feature, text, "one of its entries: " + entry_names(entries));
    case value_kind::string:
      break;
  }
  return std::string(text);
}

const entry* find_entry(const std::vector<entry>& entries, std::string_view name) {
  const auto found =
      std::find_if(entries.begin(), entries.end(), [&](const entry& e) { return e.name == name; });
  return found == entries.end() ? nullptr : &*found;
}

const entry* find_entry(const std::vector<entry>& entries, std::int64_t number) {
  const auto found =
      std::find_if(entries.begin(), entries.end(), [&](const entry& e) { return e.number == number; });
  return found == entries.end() ? nullptr : &*found;
}

std::string entry_names(const std::vector<entry>& entries) {
  std::string names;
  for (const entry& each : entries) {
    names += (names.empty() ? "" : ", ") + each.name;
  }
  return names;
}

}  // namespace gev
