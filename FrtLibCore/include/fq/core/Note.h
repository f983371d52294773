#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace fq::core {

/// A spelled note: E♭ and D♯ are different values with the same pitch. The raw
/// value (the persisted and displayed text) uses the true signs ♯, ♭ and 𝄪.
enum class Note : std::uint8_t {
    C,
    D,
    E,
    F,
    G,
    A,
    B,
    Cs,
    Ds,
    Es,
    Fs,
    Gs,
    As,
    Bs,
    Cf,
    Df,
    Ef,
    Ff,
    Gf,
    Af,
    Bf,
    Cds,
    Csds,
    Dds,
    Dsds,
    Eds,
    Fds,
    Fsds,
    Gds,
    Gsds,
    Ads,
    Asds,
    Bds,
    Cdf,
    Dfdf,
    Ddf,
    Efdf,
    Edf,
    Fdf,
    Gfdf,
    Gdf,
    Afdf,
    Adf,
    Bfdf,
    Bdf,
};

inline constexpr std::size_t noteCount = 45;

/// Every note in declared order.
std::span<const Note, noteCount> allNotes();

std::string_view rawValue(Note note);
std::optional<Note> noteFromRawValue(std::string_view raw);
/// A note as a person types it: with the true signs ("C♯", "E♭", "B♯") or in
/// ASCII ("C#", "Eb", "Dbb").
std::optional<Note> noteFromTypedName(std::string_view text);

/// The note's pitch in the lowest octave of a guitar (E at 40 up to D♯ at 51;
/// D𝄪 and D♯𝄪 deliberately stand above that window at 52 and 53).
int baseNoteNumber(Note note);

/// Equal-pitched spellings; only the fourteen plain and single-sharp notes have any.
std::span<const Note> equalSpellings(Note note);

struct NoteAndOctave {
    Note note = Note::C;
    std::uint8_t octave = 0;

    friend bool operator==(const NoteAndOctave&, const NoteAndOctave&) = default;
};

struct NoteNumber {
    int noteNumber = 0;        ///< MIDI note number
    std::uint8_t velocity = 0; ///< 0 to 127

    friend bool operator==(const NoteNumber&, const NoteNumber&) = default;
};

/// A duration as a fraction of a whole note.
enum class NoteDuration : std::uint8_t {
    semibreve,
    minim,
    crochet,
    quaver,
    semiquaver,
    demisemiquaver
};

double rawValue(NoteDuration duration);
std::optional<NoteDuration> noteDurationFromRawValue(double raw);

enum class TimeSignature : std::uint8_t { ts_34, ts_44 };

std::string_view rawValue(TimeSignature signature);
std::optional<TimeSignature> timeSignatureFromRawValue(std::string_view raw);

/// Which chord note is in the bass; the ordinal equals a chord's `variant`.
enum class Inversion : std::uint8_t {
    rootPosition,
    firstInversion,
    secondInversion,
    thirdInversion,
    fourthInversion,
    fifthInversion,
    sixthInversion,
    seventhInversion,
};

/// The localisation key, e.g. "inversion.first".
std::string_view rawValue(Inversion inversion);
std::optional<Inversion> inversionFromRawValue(std::string_view raw);
std::optional<Inversion> inversionFromVariant(int variant);
/// The English text behind the key, e.g. "First inversion".
std::string_view localizedTitle(Inversion inversion);

namespace Tuning {
/// Standard tuning, lowest string first.
inline constexpr std::array<std::string_view, 6> standard{"E", "A", "D", "G", "B", "E"};
} // namespace Tuning

} // namespace fq::core
