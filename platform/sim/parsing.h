// Reading texts of this folder: camera descriptions, faults and property values. A text that cannot be read
// raises std::invalid_argument, which quotes it and says what would be right.
#ifndef PLATFORM_SIM_PARSING_H
#define PLATFORM_SIM_PARSING_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// Without the blanks around it.
std::string_view trimmed(std::string_view text);
// The pieces between separators, trimmed; empty pieces are left out.
std::vector<std::string> split(std::string_view text, std::string_view separators);
// The statements of a text: one a line, or several between semicolons. '#' starts a comment to the end of the
// line.
std::vector<std::string> statements(std::string_view text);
// The names of all rows: "a, b, c".
template <class Rows, class Name>
std::string listed(const Rows& rows, Name name) {
  std::string list;
  for (const auto& row : rows) {
    list += list.empty() ? "" : ", ";
    list += name(row);
  }
  return list;
}

// A number from `min` to `max`. `what` is its name in the message: "fps".
double to_double(const std::string& what, const std::string& text, double min, double max);
std::int64_t to_int(const std::string& what, const std::string& text, std::int64_t min, std::int64_t max);
// The index of the text in `right`.
std::size_t one_of(const std::string& what, const std::string& text, const std::vector<std::string>& right);

}  // namespace sim

#endif
