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

// What a feature is. The numbers are those by which GevGetFeatureValue tells the kind.
enum class value_kind { integer = 3, floating = 4, string = 5, enumeration = 6, boolean = 8 };

// Integers, booleans (0 and 1) and enumerations (the number of the entry) are held as integers.
using value = std::variant<std::int64_t, double, std::string>;

// One entry of an enumeration. `access` is NI for one that the camera does not offer, else RO.
struct entry {
  std::string name;
  std::int64_t number = 0;
  GenApi::EAccessMode access = GenApi::RO;
};

// Conversions between the representations; a text that is no number raises InvalidArgumentException,
// a number without an integer near it becomes the nearest there is.
std::int64_t to_integer(const value& from);
double to_number(const value& from);
// Text that reads back as exactly the same value, whatever the locale is.
std::string to_text(const value& from);

// The text of a value of this kind: the entry's name for an enumeration ("1" and "0" for booleans), the
// plain number when no entry has it.
std::string format(value_kind kind, const std::vector<entry>& entries, const value& from);
// The reverse. Integers may be hexadecimal ("0x01080001"), booleans "1", "0", "true", "True", "false" or
// "False". Raises InvalidArgumentException, which names the feature, for any other text.
value parse(const std::string& feature, value_kind kind, const std::vector<entry>& entries,
            std::string_view text);

// Null when no entry is called or numbered so.
const entry* find_entry(const std::vector<entry>& entries, std::string_view name);
const entry* find_entry(const std::vector<entry>& entries, std::int64_t number);
// "Off, Active"
std::string entry_names(const std::vector<entry>& entries);

}  // namespace gev

#endif
