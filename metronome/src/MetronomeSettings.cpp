// The metronome's settings: reading them from the store, and checking what a person asks.

#include "fq/metronome/MetronomeSettings.h"

#include "fq/metronome/MetronomeAudioUnit.h"
#include "fq/metronome/MetronomeController.h"

#include <fq/personal/PreferenceKeys.h>

#include <fmt/format.h>

#include <cctype>
#include <charconv>

namespace fq::metronome {
namespace {

constexpr std::array<std::string_view, 4> soundNames{"real", "sine", "triangle", "square"};

/// Lower case, true signs as ASCII, no blanks.
std::string folded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        if (text.substr(i).starts_with("♯")) {
            result += '#';
            i += std::string_view("♯").size();
        } else if (text.substr(i).starts_with("♭")) {
            result += 'b';
            i += std::string_view("♭").size();
        } else {
            const auto c = static_cast<unsigned char>(text[i++]);
            if (!std::isspace(c)) result += static_cast<char>(std::tolower(c));
        }
    }
    return result;
}

tl::expected<int, Error> checked(long long value, const SettingRange& range, std::string_view what,
                                 std::string_view unit) {
    if (range.contains(value)) return static_cast<int>(value);
    return tl::unexpected(Error{fmt::format("{} must be {} to {}{}, not {}", what, range.lowest,
                                            range.highest, unit, value),
                                ErrorKind::refused});
}

} // namespace

std::string_view soundName(MetronomeSound sound) {
    const auto index = static_cast<std::size_t>(sound);
    return index < soundNames.size() ? soundNames[index] : soundNames[0];
}

tl::expected<int, Error> checkedTempo(long long bpm) {
    return checked(bpm, config::tempoRange, "The tempo", " BPM");
}

tl::expected<int, Error> checkedBeats(long long beats) {
    return checked(beats, config::beatsRange, "Beats per bar", "");
}

tl::expected<int, Error> checkedSubdivisions(long long subdivisions) {
    return checked(subdivisions, config::subdivisionsRange, "Clicks per beat", "");
}

tl::expected<MetronomeSound, Error> checkedSound(std::string_view name) {
    for (std::size_t i = 0; i < soundNames.size(); ++i)
        if (folded(name) == soundNames[i]) return static_cast<MetronomeSound>(i);
    return tl::unexpected(
        Error{fmt::format("Unknown sound: {} (one of real, sine, triangle, square)", name),
              ErrorKind::refused});
}

tl::expected<int, Error> checkedKey(std::string_view text) {
    if (const auto key = keyIndexFromText(text)) return *key;
    return tl::unexpected(Error{fmt::format("Unknown key: {} (one of E (Low), F, F#/Gb, G, G#/Ab, "
                                            "A, A#/Bb, B, C, C#/Db, D, D#/Eb, E, or 0 to 12)",
                                            text),
                                ErrorKind::refused});
}

std::optional<int> keyIndexFromText(std::string_view text) {
    const auto key = folded(text);
    int number = 0;
    const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), number);
    if (error == std::errc() && end == key.data() + key.size())
        return config::keyIndexRange.contains(number) ? std::optional(number) : std::nullopt;
    if (key == "lowe" || key == "e(low)" || key == "elow") return 0;
    for (std::size_t i = 0; i < keyNames.size(); ++i) {
        const auto name = folded(keyNames[i]);
        if (name == key) return static_cast<int>(i);
        // "F#/Gb": either spelling alone
        if (const auto slash = name.find('/'); slash != std::string::npos)
            if (name.substr(0, slash) == key || name.substr(slash + 1) == key)
                return static_cast<int>(i);
    }
    return std::nullopt;
}

MetronomeSettings storedSettings(const personal::SharedStore& store,
                                 const personal::UserPreferences& preferences) {
    namespace keys = personal::keys;
    MetronomeSettings settings;
    settings.bpm = config::tempoRange.clamped(personal::read(store, keys::tempo));
    settings.beats = config::beatsRange.clamped(personal::read(store, keys::beats));
    settings.subdivisions =
        config::subdivisionsRange.clamped(personal::read(store, keys::subdivisions));
    const auto sound = preferences.metronomeSound();
    settings.sound = config::soundRange.contains(sound) ? static_cast<MetronomeSound>(sound)
                                                        : MetronomeSound::real;
    settings.keyIndex = config::keyIndexRange.clamped(preferences.metronomeKeyIndex());
    settings.accentFirstBeat = preferences.accentFirstBeat();
    return settings;
}

tl::expected<MetronomeSettings, Error> withRequest(MetronomeSettings settings,
                                                   const MetronomeSettingsRequest& request) {
    if (request.bpm) {
        const auto bpm = checkedTempo(*request.bpm);
        if (!bpm) return tl::unexpected(bpm.error());
        settings.bpm = *bpm;
    }
    if (request.beats) {
        const auto beats = checkedBeats(*request.beats);
        if (!beats) return tl::unexpected(beats.error());
        settings.beats = *beats;
    }
    if (request.subdivisions) {
        const auto subdivisions = checkedSubdivisions(*request.subdivisions);
        if (!subdivisions) return tl::unexpected(subdivisions.error());
        settings.subdivisions = *subdivisions;
    }
    if (request.sound) {
        const auto sound = checkedSound(*request.sound);
        if (!sound) return tl::unexpected(sound.error());
        settings.sound = *sound;
    }
    if (request.key) {
        const auto key = checkedKey(*request.key);
        if (!key) return tl::unexpected(key.error());
        settings.keyIndex = *key;
    }
    if (request.accentFirstBeat) settings.accentFirstBeat = *request.accentFirstBeat;
    return settings;
}

void applySettings(MetronomeAudioUnit& unit, const MetronomeSettings& settings) {
    unit.bpmParameter.setValue(static_cast<float>(settings.bpm));
    unit.beatsParameter.setValue(static_cast<float>(settings.beats));
    unit.subdivisionParameter.setValue(static_cast<float>(settings.subdivisions));
    unit.muteParameter.setValue(0);
    unit.soundParameter.setValue(static_cast<float>(settings.sound));
    unit.noteParameter.setValue(static_cast<float>(settings.keyIndex));
    unit.fadeMsParameter.setValue(config::screenFadeMs);
    unit.accentParameter.setValue(settings.accentFirstBeat ? 1.0f : 0.0f);
}

std::string describe(const MetronomeSettings& settings) {
    std::string text = fmt::format("{} BPM, {} beats per bar, {} click{} per beat, {}",
                                   settings.bpm, settings.beats, settings.subdivisions,
                                   settings.subdivisions == 1 ? "" : "s", label(settings.sound));
    if (settings.sound != MetronomeSound::real)
        text += fmt::format(" in {}", keyNames[static_cast<std::size_t>(settings.keyIndex)]);
    text += settings.accentFirstBeat ? ", first beat accented" : ", no accent";
    return text;
}

} // namespace fq::metronome
