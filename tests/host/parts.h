// What a test expects of a program's output.
#ifndef TESTS_HOST_PARTS_H
#define TESTS_HOST_PARTS_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/program.h"

namespace tests {

// Expects all parts in the text, wherever they stand.
inline void expect_parts(const std::string& text, const std::vector<std::string>& parts) {
  for (const std::string& part : parts) {
    EXPECT_TRUE(has(text, part)) << "no '" << part << "' in\n" << text;
  }
}

}  // namespace tests

#endif
