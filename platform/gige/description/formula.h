// Formulas of swiss knives and converters.
#ifndef PLATFORM_GIGE_DESCRIPTION_FORMULA_H
#define PLATFORM_GIGE_DESCRIPTION_FORMULA_H

#include <string>
#include <string_view>

namespace gige {

// Characters; longer than any formula of a camera. Holds for the result of `guard_divisions`, too.
constexpr std::size_t longestFormula = 16'384;

// The same formula over integers, except that it divides by 0 instead of -1. On x86 the least integer divided
// by -1 (and its remainder) traps, which ends the process. ArvGc's evaluator gives 0 for a division by 0. An
// example: "X/Y" becomes "X/((Y) = (0-1) ? 0 : (Y))". Raises description_error for a division without a
// divisor, and for a formula that becomes too long.
std::string guard_divisions(std::string_view formula);

}  // namespace gige

#endif
