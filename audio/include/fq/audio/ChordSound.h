#pragma once

#include <fq/core/GuitarTuning.h>

#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace fq::audio {

/// The MIDI notes of a tuning's open strings, lowest string first.
std::array<int, 6> openStringNotes(core::GuitarTuning tuning);

/// Open strings for six note names without octaves, lowest string first ("D", "A",
/// "D", "G", "B", "E"). A catalogue tuning with exactly these notes lends its
/// octaves; otherwise each string takes the octave nearest to the same string in
/// standard tuning (the lower one when two are as near). None when a name is no note.
std::optional<std::array<int, 6>> openStringNotes(std::span<const std::string> noteNames);

/// The notes a shape sounds: each string's open note plus its fret, muted strings
/// (negative frets) left out, lowest string first.
std::vector<int> chordNotes(std::span<const int> frets, const std::array<int, 6>& openStrings);

} // namespace fq::audio
