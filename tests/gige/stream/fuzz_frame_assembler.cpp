// Any choices of what happens on a stream: frame assembly does what the plain model does.
#include <cstdio>
#include <cstdlib>

#include "tests/gige/stream/assembly_trial.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const gige::choices choose = [&](std::uint32_t below) {
    if (size == 0) {
      return below - 1;  // small frames, to which nothing happens
    }
    std::uint32_t number = 0;
    for (std::uint32_t reach = 1; reach < below && size > 0; reach *= 256, --size) {
      number = number * 256 + *data++;
    }
    return number % below;
  };
  if (const std::string difference = gige::difference_in_trial(choose); !difference.empty()) {
    std::fputs(difference.c_str(), stderr);
    std::abort();
  }
  return 0;
}
