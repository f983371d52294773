#pragma once

// What a run of the metronome is set to, and the one place that knows each setting's range:
// values a person gives are refused outside it, stored values are clamped into it.

#include "fq/metronome/MetronomePresets.h"

#include <fq/core/Error.h>
#include <fq/personal/SharedStore.h>
#include <fq/personal/UserPreferences.h>

#include <tl/expected.hpp>

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace fq::metronome {

class MetronomeAudioUnit;

/// A setting's allowed values, both ends included.
struct SettingRange {
    int lowest;
    int highest;
    constexpr int clamped(long long value) const {
        return static_cast<int>(value < lowest ? lowest : value > highest ? highest : value);
    }
    constexpr bool contains(long long value) const { return value >= lowest && value <= highest; }
};

namespace config {
/// The screen's tempo limit, wider on purpose than the unit parameter's declared 240.
inline constexpr SettingRange tempoRange{30, 300};
inline constexpr SettingRange beatsRange{1, 16};
inline constexpr SettingRange subdivisionsRange{1, 8};
inline constexpr SettingRange keyIndexRange{0, 12};
inline constexpr SettingRange soundRange{0, 3};
} // namespace config

/// The key names of the synth sounds, index 0…12, as the unit describes them.
inline constexpr std::array<std::string_view, 13> keyNames{
    "E (Low)", "F", "F#/Gb", "G", "G#/Ab", "A", "A#/Bb", "B", "C", "C#/Db", "D", "D#/Eb", "E"};

/// "real", "sine", "triangle" or "square": the names a person types for the sounds.
std::string_view soundName(MetronomeSound sound);

/// What a run of the metronome is set to.
struct MetronomeSettings {
    int bpm = 120;
    int beats = 4;
    int subdivisions = 1;
    MetronomeSound sound = MetronomeSound::real;
    int keyIndex = 1;
    bool accentFirstBeat = true;

    friend bool operator==(const MetronomeSettings&, const MetronomeSettings&) = default;
};

/// What a person asks to change; absent fields keep the stored value.
struct MetronomeSettingsRequest {
    std::optional<long long> bpm;
    std::optional<long long> beats;
    std::optional<long long> subdivisions;
    std::optional<std::string> sound;
    std::optional<std::string> key;
    std::optional<bool> accentFirstBeat;
};

// Each refuses a value outside its range with a one-line message that names the range.
tl::expected<int, Error> checkedTempo(long long bpm);
tl::expected<int, Error> checkedBeats(long long beats);
tl::expected<int, Error> checkedSubdivisions(long long subdivisions);
/// "real", "sine", "triangle" or "square".
tl::expected<MetronomeSound, Error> checkedSound(std::string_view name);
/// A key as keyIndexFromText reads it.
tl::expected<int, Error> checkedKey(std::string_view text);

/// The index of a key written as a person would: "E (Low)" or "low E", a note of the
/// table with ASCII or true signs ("F#", "Gb", "F♯", "G♭"), or the index itself. Plain
/// "E" is the high one. None for anything else.
std::optional<int> keyIndexFromText(std::string_view text);

/// The stored settings, each clamped into its range (a sound out of range is the
/// recorded clicks, as the unit plays it).
MetronomeSettings storedSettings(const personal::SharedStore& store,
                                 const personal::UserPreferences& preferences);

/// `base` with the request applied; the first value out of range refuses the whole.
tl::expected<MetronomeSettings, Error> withRequest(MetronomeSettings base,
                                                   const MetronomeSettingsRequest& request);

/// Writes the settings into the unit as the screen does when it first has a unit:
/// unmuted, with 5 ms synth fades.
void applySettings(MetronomeAudioUnit& unit, const MetronomeSettings& settings);

/// "120 BPM, 4 beats per bar, 1 click per beat, Real Metronome, first beat accented".
std::string describe(const MetronomeSettings& settings);

} // namespace fq::metronome
