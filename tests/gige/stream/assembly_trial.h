// Trials of frame assembly: what happens on a stream, generated from choices, and run through the assembler
// and the model side by side.
#ifndef TESTS_GIGE_STREAM_ASSEMBLY_TRIAL_H
#define TESTS_GIGE_STREAM_ASSEMBLY_TRIAL_H

#include <cstdint>
#include <functional>
#include <string>

namespace gige {

// Gives a number below its argument, which is not 0.
using choices = std::function<std::uint32_t(std::uint32_t)>;

// Makes a trial and runs it. Where assembler and model differ, or a byte is wrong: what the first difference
// is, and the shortest trial found that still has one. Empty where there is none.
std::string difference_in_trial(const choices& choose);

}  // namespace gige

#endif
