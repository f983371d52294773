#pragma once

#include "fq/metronome/MetronomeAudioUnit.h"
#include "fq/metronome/MetronomePresets.h"

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace fq::metronome {

/// The key names of the synth sounds, index 0…12, as the unit describes them.
inline constexpr std::array<std::string_view, 13> keyNames{
    "E (Low)", "F", "F#/Gb", "G", "G#/Ab", "A", "A#/Bb", "B", "C", "C#/Db", "D", "D#/Eb", "E"};

/// The index of a key written as a person would: "E (Low)" or "low E", a note of the
/// table with ASCII or true signs ("F#", "Gb", "F♯", "G♭"), or the index itself. Plain
/// "E" is the high one. None for anything else.
std::optional<int> keyIndexFromText(std::string_view text);

/// What a run of the metronome is set to.
struct MetronomeSettings {
    int bpm = 120;
    int beats = 4;
    int subdivisions = 1;
    MetronomeSound sound = MetronomeSound::real;
    int keyIndex = 1;
    bool accentFirstBeat = true;
};

/// Writes the settings into the unit as the screen does when it first has a unit:
/// unmuted, with 5 ms synth fades.
void applySettings(MetronomeAudioUnit& unit, const MetronomeSettings& settings);

/// Renders `seconds` of clicks, from a start, through the shared engine's offline path
/// and streams them into a 16-bit stereo WAV file at 44100 Hz. Returns the number of
/// frames written.
tl::expected<std::int64_t, Error> renderMetronome(const MetronomeSettings& settings,
                                                  const std::filesystem::path& file,
                                                  double seconds);

} // namespace fq::metronome
