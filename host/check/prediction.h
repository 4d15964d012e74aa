// What a change of settings must do to a picture, from the picture before it.
#ifndef HOST_CHECK_PREDICTION_H
#define HOST_CHECK_PREDICTION_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/config/config.h"

namespace host {

/// Pixels of a picture, or of several, by grey.
using grey_histogram = std::array<std::uint64_t, 256>;

double mean_grey(const grey_histogram& greys);

/// Bounds of the mean grey after a change.
struct grey_bounds {
  double least;
  double most;
};

/// Light counts linearly: exposure times gain, then gamma, cut at white. What was white before may have been
/// brighter, and what was black may have been anything below one grey: they widen the bounds. How much an IR
/// light adds is not known, so that switching it moves the bound on its side to the end. `hasIr`: whether the
/// level drives any light.
grey_bounds predict(const grey_histogram& before, const light_settings& from, const light_settings& to,
                    bool hasIr);

/// Mean grey of the pictures before and after a change, one each.
struct grey_series {
  std::vector<double> before;
  std::vector<double> after;
};

enum class effect_verdict : std::uint8_t { seen, notSeen, notJudged };

struct effect_judgement {
  effect_verdict verdict;
  std::string text;  ///< for people: the figures, or why it can't be judged
};

/// Whether the pictures did what was predicted: went in its direction, at least half of the way. Not judged
/// where what is predicted is within the noise: how much the pictures before the change differ from each
/// other, and those after it.
effect_judgement judge_effect(const grey_series& seen, const grey_bounds& predicted);

}  // namespace host

#endif
