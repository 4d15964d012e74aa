// Descriptions made of any bytes, so that a fuzzer's are of the right form more often than not.
#ifndef TESTS_GIGE_DESCRIPTION_GENERATED_DESCRIPTION_H
#define TESTS_GIGE_DESCRIPTION_GENERATED_DESCRIPTION_H

#include <cstdint>
#include <span>
#include <string>

namespace description_test {

// Nodes of all types that link to each other, with numbers and formulas on and beyond the edge.
std::string generated_description(std::span<const std::uint8_t> from);

}  // namespace description_test

#endif
