// Reading the small languages of this directory: camera descriptions, faults and property values. What is
// wrong is raised as std::invalid_argument.
#ifndef PLATFORM_SIM_WORDS_H
#define PLATFORM_SIM_WORDS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// Without the blanks around it.
std::string_view trimmed(std::string_view text);
// The pieces between the separators, without blanks around them and without the empty ones.
std::vector<std::string> split(std::string_view text, std::string_view separators);
// The lines of a text, or what semicolons separate; '#' starts a comment that ends with the line.
std::vector<std::string> statements(std::string_view text);
// "a, b, c", of what `name` makes of each row.
template <class Rows, class Name>
std::string listed(const Rows& rows, Name name) {
  std::string list;
  for (const auto& row : rows) {
    list += list.empty() ? "" : ", ";
    list += name(row);
  }
  return list;
}

// Numbers within bounds. `what` names them in the message: "fps".
double to_double(const std::string& what, const std::string& text, double min, double max);
std::int64_t to_int(const std::string& what, const std::string& text, std::int64_t min, std::int64_t max);
// The index of the word among those that are right.
std::size_t one_of(const std::string& what, const std::string& text, const std::vector<std::string>& right);

}  // namespace sim

#endif
