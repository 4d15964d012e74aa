// Conversions that are defined for every value.
#ifndef CORE_NUMERIC_H
#define CORE_NUMERIC_H

#include <cmath>
#include <concepts>
#include <limits>

namespace Zavik {

/// `value` truncated toward zero. What has no such integer (not a number, infinite, too large) gives 0.
template <std::integral Integer>
Integer truncateTo(double value) {
  using limits = std::numeric_limits<Integer>;
  // 2^digits: the first value above the range, exact as a double where the maximum itself is not.
  const double end = std::ldexp(1.0, limits::digits);
  const double truncated = std::trunc(value);
  const bool fits = truncated >= static_cast<double>(limits::min()) && truncated < end;
  return fits ? static_cast<Integer>(truncated) : Integer{0};
}

}  // namespace Zavik

#endif
