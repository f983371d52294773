#pragma once

// The reference tones of a tuning: which string a player means, and how a row of tones
// sounds when its buttons are tapped in turn.

#include <fq/audio/GuitarAudioEngine.h>
#include <fq/core/Error.h>
#include <fq/core/GuitarTuning.h>

#include <tl/expected.hpp>

#include <chrono>
#include <span>
#include <string_view>
#include <vector>

namespace fq::tuner {

namespace config {
/// How long a reference tone sounds.
inline constexpr std::chrono::milliseconds toneLength{2500};
/// Tones tapped in turn follow one another this far apart.
inline constexpr std::chrono::milliseconds toneSpacing{1500};
} // namespace config

/// A string of `tuning` as a player names it: its number, 1 (highest) to 6 (lowest); its
/// note and octave ("A2", "C#2", "Bb3", "c♯2"); or its note alone ("A") when the tuning has
/// one string of that note.
tl::expected<core::ReferenceToneButtonData, Error> findReferenceTone(core::GuitarTuning tuning,
                                                                     std::string_view text);

/// The notes as buttons tapped in turn: each rings until the next, the last rings out.
std::vector<audio::TimedNotes> referenceToneParts(std::span<const int> notes);

} // namespace fq::tuner
