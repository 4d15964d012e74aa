// Trials of frame assembly: what happens on a stream, generated from choices, and run through the assembler
// and the model side by side.
#ifndef TESTS_GIGE_STREAM_ASSEMBLY_TRIAL_H
#define TESTS_GIGE_STREAM_ASSEMBLY_TRIAL_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/gige/stream/frame_layout.h"
#include "tests/gige/stream/assembly_model.h"

namespace gige {

struct trial_event {
  enum class kind {
    packet,       // arrives, together with those before it since the last event of another kind
    pause,        // of that many tenths of a millisecond
    deadline,     // the assembler is called when it wants to be
    answer,       // the camera sends the oldest packet that was asked for
    unavailable,  // or says that it does not have it
    starve,       // no memory is lent from here on
    feed,         // or is lent again
    restart,      // a new acquisition
  };
  kind what = kind::packet;
  sent_packet packet{};
  unsigned tenths = 0;
};

struct trial {
  sent_stream camera;
  bool predicted = false;  // bodies are received where the assembler says, as recvmmsg does
  std::vector<trial_event> events{};
};

// Gives a number below its argument, which is not 0.
using choices = std::function<std::uint32_t(std::uint32_t)>;

trial make_trial(const choices& choose);

// The first difference between assembler and model, or the first wrong byte, in words, if there is any.
std::optional<std::string> run_trial(const trial& what);

// Leaves out events as long as what is left still fails, and says what they are.
std::string shrink(trial failing);

}  // namespace gige

#endif
