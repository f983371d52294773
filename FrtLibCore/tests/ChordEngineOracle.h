#pragma once

// A plain, step-by-step reading of the shape generator: note texts, candidate
// lists, the full cartesian product and the muting expansion exactly as written.
// It is slow on purpose; the fast generator must match it shape for shape.

#include "fq/core/ChordPosition.h"

#include <span>
#include <string_view>
#include <vector>

namespace fq::core::oracle {

std::vector<ChordPosition> chordPositions(std::string_view root, std::span<const int> intervals,
                                          int limit, std::span<const std::string_view> tuning);

} // namespace fq::core::oracle
