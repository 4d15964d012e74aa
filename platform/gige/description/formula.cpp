#include "platform/gige/description/formula.h"

#include <cctype>

#include "platform/gige/description/description_error.h"

namespace gige {
namespace {

bool is_space(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// A character of a number or a name.
bool is_word(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '.';
}

// Finds the end of the divisor of a division.
class operand_scanner {
 public:
  operand_scanner(std::string_view formula, std::size_t begin) : formula_(formula), at_(begin) {}

  // Signs, an operand, and its exponents.
  std::size_t end() {
    take_factor();
    while (takes("**")) {
      take_factor();
    }
    return at_;
  }

 private:
  char next() const { return at_ < formula_.size() ? formula_[at_] : '\0'; }

  void skip_space() {
    while (is_space(next())) {
      ++at_;
    }
  }

  bool takes(std::string_view what) {
    const std::size_t before = at_;
    skip_space();
    if (formula_.substr(at_).starts_with(what)) {
      at_ += what.size();
      return true;
    }
    at_ = before;
    return false;
  }

  void take_factor() {
    while (takes("-") || takes("+") || takes("~")) {
    }
    skip_space();
    const std::size_t begin = at_;
    take_word();
    if (takes("(")) {  // an expression in brackets, or the arguments of a function
      take_rest_of_brackets();
    }
    if (at_ == begin) {
      throw description_error("a division without a divisor");
    }
  }

  void take_word() {
    const bool number = std::isdigit(static_cast<unsigned char>(next())) != 0;
    const bool decimal = number && !formula_.substr(at_).starts_with("0x");
    while (is_word(next())) {
      const bool exponent = decimal && (next() == 'e' || next() == 'E');
      ++at_;
      if (exponent && (next() == '-' || next() == '+')) {
        ++at_;
      }
    }
  }

  void take_rest_of_brackets() {
    for (std::size_t open = 1; open > 0; ++at_) {
      if (at_ == formula_.size()) {
        throw description_error("a bracket that is not closed");
      }
      open += next() == '(' ? 1 : 0;
      open -= next() == ')' ? 1 : 0;
    }
  }

  std::string_view formula_;
  std::size_t at_;
};

// A literal is never -1, except one of 64 bits.
bool is_plain_number(std::string_view operand) {
  constexpr std::size_t shorter = 16;
  while (!operand.empty() && is_space(operand.front())) {
    operand.remove_prefix(1);
  }
  return !operand.empty() && operand.size() < shorter &&
         std::isdigit(static_cast<unsigned char>(operand.front())) != 0;
}

}  // namespace

std::string guard_divisions(std::string_view formula) {
  std::string guarded;
  for (std::size_t at = 0; at < formula.size();) {
    guarded += formula[at];
    const bool divides = formula[at] == '/' || formula[at] == '%';
    ++at;
    if (!divides) {
      continue;
    }
    const std::size_t end = operand_scanner(formula, at).end();
    const std::string divisor = guard_divisions(formula.substr(at, end - at));
    if (is_plain_number(divisor)) {
      guarded += divisor;
    } else {
      guarded.append("((").append(divisor).append(") = (0-1) ? 0 : (").append(divisor).append("))");
    }
    at = end;
    if (guarded.size() > longestFormula) {
      break;
    }
  }
  if (guarded.size() > longestFormula) {
    throw description_error("a formula of more than " + std::to_string(longestFormula) + " characters");
  }
  return guarded;
}

}  // namespace gige
