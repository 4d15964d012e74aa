// Whatever a network does to a camera's packets, and whatever a camera says in them, frame assembly does what
// the plain model does: no frame is wrong, none is lost that could be had, and all is counted.
#include <gtest/gtest.h>

#include <random>

#include "tests/gige/stream/assembly_trial.h"

namespace gige {
namespace {

TEST(assembly_property, AnyPacketsGiveTheFramesOfThePlainModel) {
  constexpr unsigned trials = 1500;
  for (unsigned seed = 1; seed <= trials; ++seed) {
    std::mt19937 numbers(seed);
    ASSERT_EQ(difference_in_trial(
                  [&](std::uint32_t below) { return static_cast<std::uint32_t>(numbers() % below); }),
              "")
        << "seed " << seed;
  }
}

}  // namespace
}  // namespace gige
