#pragma once

#include "fq/core/BytesStore.h"
#include "fq/core/ChordPosition.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::core {

/// Generates every playable shape of a chord on a six-string guitar in any
/// tuning, with fingers. Results are memoised in the persistent store when one
/// is given; the memo only saves time, it never changes a result.
class ChordEngine {
public:
    /// Part of the memo key: a new value leaves stored results unused.
    static constexpr int chordShapeGeneratorVersion = 2;

    explicit ChordEngine(BytesStore* memo = nullptr) : memo_(memo) {}

    /// Shapes of the chord whose first interval is the bass, lowest string first:
    /// the first-class shapes (no inner string muted) then the rest. `limit` -1 means
    /// all; otherwise generation stops once that many first-class shapes are found.
    /// `tuning` holds six open notes, lowest string first. An unknown root or open
    /// note gives an empty list.
    std::vector<ChordPosition> chordPositions(std::string_view root, std::span<const int> intervals,
                                              int limit,
                                              std::span<const std::string_view> tuning) const;

    /// Fingers 1 to 4 for a shape (frets lowest string first), 0 for open and muted
    /// strings and for a string no rule could finger; empty when no string is fretted.
    static std::vector<int> fingering(std::span<const int> frets);

    /// "chordPositions-C-0,4,7--1-E,A,D,G,B,E-g2-v<version>-b<build>"
    static std::string memoKey(std::string_view root, std::span<const int> intervals, int limit,
                               std::span<const std::string_view> tuning);

private:
    BytesStore* memo_;
};

/// The program's version and build number, as the memo key spells them.
std::string_view appVersion();
std::string_view appBuild();

} // namespace fq::core
