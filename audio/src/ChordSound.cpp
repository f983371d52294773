#include "fq/audio/ChordSound.h"

#include <fq/core/Spelling.h>

#include <algorithm>

namespace fq::audio {

std::array<int, 6> openStringNotes(core::GuitarTuning tuning) {
    std::array<int, 6> notes{};
    const auto& strings = core::tuningData(tuning).referenceToneButtonData;
    std::transform(strings.begin(), strings.end(), notes.begin(),
                   [](const auto& string) { return string.noteNumber; });
    return notes;
}

std::optional<std::array<int, 6>> openStringNotes(std::span<const std::string> noteNames) {
    if (noteNames.size() != 6) return std::nullopt;
    std::array<int, 6> pitches{};
    for (std::size_t i = 0; i < 6; ++i) {
        const auto pitch = core::pitchOfTypedNote(noteNames[i]);
        if (!pitch) return std::nullopt;
        pitches[i] = *pitch;
    }
    for (const auto tuning : core::allGuitarTunings()) {
        const auto notes = openStringNotes(tuning);
        if (std::equal(notes.begin(), notes.end(), pitches.begin(),
                       [](int note, int pitch) { return note % 12 == pitch; }))
            return notes;
    }
    const auto standard = openStringNotes(core::GuitarTuning::standard);
    std::array<int, 6> notes{};
    for (std::size_t i = 0; i < 6; ++i) {
        // the note of this pitch class at most six semitones below the standard string's
        const int below = standard[i] - ((standard[i] - pitches[i]) % 12 + 12) % 12;
        notes[i] = standard[i] - below > 6 ? below + 12 : below;
    }
    return notes;
}

std::vector<int> chordNotes(std::span<const int> frets, const std::array<int, 6>& openStrings) {
    std::vector<int> notes;
    for (std::size_t string = 0; string < std::min<std::size_t>(frets.size(), 6); ++string)
        if (frets[string] >= 0) notes.push_back(openStrings[string] + frets[string]);
    return notes;
}

} // namespace fq::audio
