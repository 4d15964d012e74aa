// Formulas of swiss knives and converters.
#ifndef PLATFORM_GIGE_DESCRIPTION_FORMULA_H
#define PLATFORM_GIGE_DESCRIPTION_FORMULA_H

#include <string>
#include <string_view>

namespace gige {

// Longer than any formula of a camera, and than any that `guard_divisions` gives.
constexpr std::size_t longestFormula = 16'384;

// The same formula over integers, but one that divides by 0 where it would divide by -1: ArvGc's evaluator
// gives 0 for that, while the least integer divided by -1 (or its remainder) ends the process, on x86 at
// least. Raises description_error for a division without a divisor, and for a formula that becomes too long.
std::string guard_divisions(std::string_view formula);

}  // namespace gige

#endif
