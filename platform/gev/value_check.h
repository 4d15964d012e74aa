// Why a feature refuses a value: its access mode, its limits, its increment, its entries.
#ifndef PLATFORM_GEV_VALUE_CHECK_H
#define PLATFORM_GEV_VALUE_CHECK_H

#include <string>
#include <vector>

#include "platform/gev/feature.h"

namespace gev {

// The values that a number may have.
struct limits {
  value min{};
  value max{};
  value inc{};  // of integers only; counted from the minimum
};

// Raises OutOfRangeException for a number outside of its limits or between two increments,
// InvalidArgumentException for one that is not a number or no entry, and AccessException for an entry that
// the camera does not offer. The description names the feature, the value and what would be right.
void check_value(const feature& of, value_kind kind, const value& what, const limits& within,
                 const std::vector<entry>& entries);
// Raises AccessException unless a feature with that access mode can be written.
void check_writable(feature& of, const value& written, GenApi::EAccessMode access);

// "64 px"
std::string with_unit(const feature& of, const value& what);

}  // namespace gev

#endif
