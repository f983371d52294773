#pragma once

#include "fq/core/Chord.h"
#include "fq/core/Error.h"
#include "fq/core/Note.h"

#include <tl/expected.hpp>

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace fq::core {

namespace config {
/// Longest type key a display name spells out before it falls back to the short title.
inline constexpr std::size_t nameLength = 12;
} // namespace config

/// Frets lowest string first, -1 for a muted string.
using FretList = std::array<int, 6>;

/// Text → value lookup that accepts a string_view without building a string.
struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>{}(text);
    }
};

using PriorityList = std::unordered_map<Chord, std::vector<FretList>, ChordHash>;

/// Parses the catalogue document ({"chords": {key: definition}}) in document order.
tl::expected<std::vector<ChordData>, Error> parseChordCatalogue(std::string_view json);

/// The owner of everything known about chord types: the catalogue, the alias
/// dictionary and the preferred shapes. Built once; immutable afterwards, so any
/// thread may read it.
class ChordDataManager {
public:
    /// The process-wide instance, built by the first caller on any thread.
    static const ChordDataManager& shared();

    /// Builds everything from the embedded catalogue. Use `shared()`; building
    /// anew is for measuring the cold start.
    ChordDataManager();

    /// The catalogue in document order.
    const std::vector<ChordData>& catalogue() const { return catalogue_; }
    const ChordData* chordData(std::string_view chordType) const;

    /// The chord an alias text names ("C", "Cm7", "Bb7", "C/E", "C♯minor 7th"), or null.
    const Chord* chord(std::string_view alias) const;
    /// Every alias text the dictionary knows.
    std::size_t aliasCount() const { return aliasIndex_.size(); }
    /// The dictionary's distinct chords, in the order they were first registered.
    const std::vector<Chord>& dictionaryChords() const { return dictionaryChords_; }

    const PriorityList& priorityList() const { return priorityList_; }
    /// The preferred shapes of a chord, first wanted first; empty when it has none.
    std::vector<FretList> priorityPositions(const Chord& chord) const;

    /// The 17 roots the dictionary is built from.
    static std::span<const std::string_view> allRootNotes();

    /// Spelled notes in root-position order; empty for an unknown type.
    std::vector<std::string> notes(Note root, std::string_view chordType) const;
    /// Interval names from the formula, rotated left by `variant`.
    std::vector<std::string> intervalNames(std::string_view chordType, int variant) const;
    /// The same with "Unison" spoken of as "Root".
    std::vector<std::string> rootedIntervalNames(std::string_view chordType, int variant) const;

    /// "C minor", "C5", "C min/maj7", "C major/E": the key when it has at most
    /// `maxLength` characters, else the short title.
    std::string name(Note root, std::string_view chordType, int variant,
                     std::size_t maxLength = config::nameLength) const;
    std::string shortestName(Note root, std::string_view chordType, int variant) const;
    std::vector<std::string> aliases(Note root, std::string_view chordType, int variant) const;

    /// Chords whose notes are exactly the given comma-separated notes, the first in the bass.
    std::vector<Chord> chordsMatching(std::string_view notesText) const;
    /// Root-position chords whose notes contain or are contained in the given ones, best first.
    std::vector<Chord> similarChords(std::string_view notesText) const;

private:
    /// A chord's pitch classes as bits (C = bit 0) and the pitch class of its bass.
    struct PitchClasses {
        std::uint16_t set = 0;
        int bass = 0;
    };
    using TextIndex = std::unordered_map<std::string, std::uint32_t, TextHash, std::equal_to<>>;

    void buildDictionary();
    void registerAliases(std::string_view root, const ChordData& data, std::uint32_t chordIndex,
                         std::string_view bass);
    void buildPriorityList();
    std::string bass(Note root, const ChordData& data, int variant) const;

    std::vector<ChordData> catalogue_;
    TextIndex indexByType_;
    /// Alias text → index into `registered_`; a later registration replaces an earlier one.
    TextIndex aliasIndex_;
    std::vector<Chord> registered_;
    std::vector<std::uint32_t> aliasesPerChord_;
    /// The registered chords that some alias still names, with their pitch classes.
    std::vector<Chord> dictionaryChords_;
    std::vector<PitchClasses> dictionaryPitches_;
    PriorityList priorityList_;
};

} // namespace fq::core
