// The value of a feature and its text.
#ifndef PLATFORM_GEV_VALUE_H
#define PLATFORM_GEV_VALUE_H

#include <GenApi/GenApi.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace gev {

// The kind of a feature. The numbers are those of `*type` in GevGetFeatureValue.
enum class value_kind { integer = 3, floating = 4, string = 5, enumeration = 6, boolean = 8 };

// A boolean is the integer 0 or 1, an enumeration the number of its entry.
using value = std::variant<std::int64_t, double, std::string>;

// One entry of an enumeration. `access` is NI for one that the camera does not offer, else RO.
struct entry {
  std::string name;
  std::int64_t number = 0;
  GenApi::EAccessMode access = GenApi::RO;
};

// Conversions. A number is rounded to the nearest integer, beyond the range of integers to the largest or
// smallest. Not a number, and a text that is none, raise InvalidArgumentException.
std::int64_t to_integer(const value& from);
double to_number(const value& from);
// The shortest text that reads back as exactly the same value, in any locale.
std::string to_text(const value& from);

// The text of a value of this kind: "1" or "0" for a boolean, the name of the entry for an enumeration, its
// number when no entry has that.
std::string format(value_kind kind, const std::vector<entry>& entries, const value& from);
// The value of a text. An integer may be hexadecimal ("0x01080001"); a boolean is "1", "0", "true", "True",
// "false" or "False". Any other text raises InvalidArgumentException, whose description names the feature.
value parse(const std::string& feature, value_kind kind, const std::vector<entry>& entries,
            std::string_view text);

// The entry of that name or number; null when there is none.
const entry* find_entry(const std::vector<entry>& entries, std::string_view name);
const entry* find_entry(const std::vector<entry>& entries, std::int64_t number);
// "Off, Active"
std::string entry_names(const std::vector<entry>& entries);

}  // namespace gev

#endif
